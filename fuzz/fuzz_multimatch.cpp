// Feeds arbitrary text and patterns to the wildcard matcher and the search
// and replace helpers. Besides crashes it checks that the functions agree
// with each other where their contracts overlap.

#include <ut/UT_String.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const char *bytes = reinterpret_cast<const char *>(data);
    const void *nul = std::memchr(bytes, '\0', size);
    std::size_t split = nul ? static_cast<std::size_t>(static_cast<const char *>(nul) - bytes)
                            : size / 2;
    std::string text(bytes, split);
    std::string pattern(bytes + split + (nul ? 1 : 0), bytes + size);
    // The pattern is used as a C string, so anything past a further NUL is
    // ignored; keep the std::string in step for the comparisons below.
    pattern.resize(std::strlen(pattern.c_str()));

    for (bool cs : {true, false}) {
        bool any = UT_String::multiMatch(text.c_str(), pattern.c_str(), cs);
        if (UT_String(text).multiMatch(pattern.c_str(), cs) != any)
            std::abort();
        // Without separators a non-empty pattern is a single piece.
        if (!pattern.empty() &&
            UT_String::multiMatch(text.c_str(), pattern.c_str(), cs, nullptr) !=
                UT_String::match(text.c_str(), pattern.c_str(), cs))
            std::abort();
    }

    UT_String subject(text.c_str());
    for (bool whole : {false, true}) {
        bool found = subject.findString(pattern.c_str(), whole, true);
        subject.findString(pattern.c_str(), whole, false);
        UT_String copy(subject);
        int count = copy.changeString(pattern.c_str(), "<>", whole);
        if ((count > 0) != found)
            std::abort();
        if (count == 0 && copy != subject)
            std::abort();
    }
    return 0;
}
