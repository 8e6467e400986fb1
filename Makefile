# The two commands of README.md, and the benchmarks:
#   make run    set up, build, run the main job on the bundled example
#   make test   set up, build, run every test
#   make bench  set up, build, run the benchmarks
# Build trees: build/ (Release), build-asan/, build-tsan/, build-fuzz/.

SHELL       := /bin/bash
JOBS        ?= 2
BUILD       ?= build
CMAKE_FLAGS ?=
GENERATOR   := $(shell command -v ninja >/dev/null 2>&1 && echo "-G Ninja")

.PHONY: all deps configure build run test bench asan tsan fuzz install clean

all: build

deps:
	@scripts/deps.sh build

configure: deps
	@if [ ! -f $(BUILD)/CMakeCache.txt ]; then \
	    cmake -S . -B $(BUILD) $(GENERATOR) -DCMAKE_BUILD_TYPE=Release $(CMAKE_FLAGS); fi

build: configure
	cmake --build $(BUILD) -j$(JOBS)

run: build
	$(BUILD)/examples/chanlib_demo

test: build
	cd $(BUILD) && ctest --output-on-failure -j$(JOBS)

bench:
	@scripts/deps.sh build bench
	@if [ ! -f $(BUILD)/CMakeCache.txt ]; then \
	    cmake -S . -B $(BUILD) $(GENERATOR) -DCMAKE_BUILD_TYPE=Release $(CMAKE_FLAGS); fi
	cmake $(BUILD) -DCHANLIB_BUILD_BENCH=ON
	cmake --build $(BUILD) -j$(JOBS)
	@set -e; for b in $(BUILD)/bench/bench_*; do [ -x "$$b" ] && "$$b"; done

# Sanitizer builds: every test under ASan+UBSan, the concurrency tests under TSan.
asan: deps
	cmake -S . -B build-asan $(GENERATOR) -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCHANLIB_SANITIZE=ON
	cmake --build build-asan -j$(JOBS)
	cd build-asan && ctest --output-on-failure -j$(JOBS)

tsan: deps
	cmake -S . -B build-tsan $(GENERATOR) -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCHANLIB_TSAN=ON
	cmake --build build-tsan -j$(JOBS)
	cd build-tsan && TSAN_OPTIONS=halt_on_error=1 ctest --output-on-failure -j$(JOBS) -L concurrency

# libFuzzer targets (clang); FUZZ_SECONDS per target. Each runs on a scratch
# copy of its seed corpus (fuzz/corpus/<name>, when there is one).
FUZZ_SECONDS ?= 60
fuzz:
	@scripts/deps.sh build fuzz
	cmake -S . -B build-fuzz $(GENERATOR) -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_CXX_COMPILER=clang++ \
	    -DCHANLIB_FUZZ=ON -DCHANLIB_BUILD_TESTS=OFF -DCHANLIB_BUILD_EXAMPLES=OFF
	cmake --build build-fuzz -j$(JOBS)
	@set -e; for f in build-fuzz/fuzz/fuzz_*; do \
	    [ -x "$$f" ] || continue; name=$${f##*/fuzz_}; work=build-fuzz/corpus/$$name; \
	    rm -rf "$$work"; mkdir -p "$$work"; \
	    if [ -d fuzz/corpus/$$name ]; then cp fuzz/corpus/$$name/* "$$work"/; fi; \
	    echo "== fuzzing $$name for $(FUZZ_SECONDS)s"; \
	    "$$f" -max_total_time=$(FUZZ_SECONDS) -rss_limit_mb=2048 -artifact_prefix=build-fuzz/ "$$work" 2>&1 | tail -n 3; \
	    test $${PIPESTATUS[0]} -eq 0; \
	done

PREFIX ?= /usr/local
install: build
	cmake --install $(BUILD) --prefix $(PREFIX)

clean:
	rm -rf build build-asan build-tsan build-fuzz
