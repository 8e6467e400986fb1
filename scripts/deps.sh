#!/usr/bin/env bash
# Installs the Debian packages a build step needs, only those missing.
#   scripts/deps.sh build|bench|fuzz ...
# Runs apt-get update at most once, and only when something must be installed.
set -euo pipefail

packages_for() {
    case "$1" in
        build) echo "cmake make g++ ninja-build libgtest-dev libgmock-dev libimath-dev" ;;
        bench) echo "libbenchmark-dev libmuparser-dev pkg-config" ;;
        fuzz)  echo "clang libclang-rt-14-dev" ;;
        *) echo "deps.sh: unknown group '$1'" >&2; exit 2 ;;
    esac
}

missing=()
for group in "$@"; do
    for p in $(packages_for "$group"); do
        status=$(dpkg-query -W -f='${Status}' "$p" 2>/dev/null || true)
        [ "$status" = "install ok installed" ] || missing+=("$p")
    done
done
[ ${#missing[@]} -eq 0 ] && exit 0

echo "chanlib: installing missing packages: ${missing[*]}"
if [ "$(id -u)" -eq 0 ]; then
    sudo=""
elif command -v sudo >/dev/null 2>&1; then
    sudo="sudo"
else
    echo "chanlib: these Debian packages are needed: ${missing[*]}" >&2
    echo "chanlib: run as root, or install them with apt-get, then retry." >&2
    exit 1
fi
$sudo apt-get update
$sudo env DEBIAN_FRONTEND=noninteractive apt-get install -y "${missing[@]}"
