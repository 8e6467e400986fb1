// The string functions of the standard library.

#include "evLibrary.h"

#include <ev/EV_Engine.h>
#include <ut/UT_String.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <string>

namespace {

// Bounds on what a single call may ask for, so that a stray huge number in
// an expression cannot exhaust memory.
constexpr int theMaxPadWidth = 256;
constexpr int theMaxFieldSize = 100;

constexpr int theS = EV_TYPESTRING;
constexpr int theF = EV_TYPEFLOAT;

const char *evStr(EV_SYMBOL **argv, int i) { return argv[i]->getString(); }
double evNum(EV_SYMBOL **argv, int i) { return argv[i]->getFloat(); }

void evBadArg(EV_SYMBOL *result, int thread)
{
    ev_RaiseError(EV_ERRBADARG, thread);
    result->setString("");
}

// A float argument used as a position: truncated toward zero and clipped
// to [0, limit]; NaN counts as 0.
std::size_t evIndex(double x, std::size_t limit)
{
    if (!(x > 0.0))
        return 0;
    if (x >= static_cast<double>(limit))
        return limit;
    return static_cast<std::size_t>(x);
}

bool evIsBlank(char c) { return c == ' ' || c == '\t' || c == '\n'; }

// ---- sprintf's format ------------------------------------------------------

// Rebuilds a format of exactly one d, i, f, e, g, E or G field as a format
// that is safe to give snprintf: known flags only, width and precision
// capped, an integer field widened to long long. False for anything else.
bool evSafeFormat(const char *format, std::string &safe, bool &integer)
{
    int fields = 0;
    for (const char *p = format; *p; ++p) {
        if (*p != '%') {
            safe += *p;
            continue;
        }
        if (p[1] == '%') {
            safe += "%%";
            ++p;
            continue;
        }
        if (++fields > 1)
            return false;
        ++p;
        std::string flags;
        for (; *p && std::strchr("-+ 0#", *p); ++p)
            if (flags.find(*p) == std::string::npos)
                flags += *p;
        auto number = [&p] {
            int n = 0;
            for (; *p >= '0' && *p <= '9'; ++p)
                n = std::min(n * 10 + (*p - '0'), theMaxFieldSize);
            return n;
        };
        std::string size;
        if (*p >= '0' && *p <= '9')
            size = std::to_string(number());
        if (*p == '.') {
            ++p;
            size += '.' + std::to_string(number());
        }
        const char kind = *p;
        if (kind == '\0' || !std::strchr("difegEG", kind))
            return false;
        integer = kind == 'd' || kind == 'i';
        // '#' has no meaning for integers in C, and an undefined one at that.
        if (integer && flags.find('#') != std::string::npos)
            flags.erase(flags.find('#'), 1);
        safe += '%' + flags + size + (integer ? "ll" : "") + kind;
    }
    return fields == 1;
}

// Saturates instead of overflowing; NaN gives 0.
long long evToLongLong(double x)
{
    if (std::isnan(x))
        return 0;
    if (x >= 9223372036854775807.0)
        return LLONG_MAX;
    if (x <= -9223372036854775808.0)
        return LLONG_MIN;
    return static_cast<long long>(x);
}

// ---- Callbacks -------------------------------------------------------------

void evStrlen(EV_FUNCTION *, EV_SYMBOL *result, EV_SYMBOL **argv, int)
{
    result->setFloat(static_cast<double>(std::strlen(evStr(argv, 0))));
}

void evSubstr(EV_FUNCTION *, EV_SYMBOL *result, EV_SYMBOL **argv, int)
{
    const std::string s = evStr(argv, 0);
    const std::size_t start = evIndex(evNum(argv, 1), s.size());
    const std::size_t length = evIndex(evNum(argv, 2), s.size() - start);
    result->setString(s.substr(start, length).c_str());
}

// A result that would pass the engine's string limit: error 9 with its text
// and an empty string.
void evTooLong(EV_SYMBOL *result, int thread)
{
    ev_SetCustomErrorMessage(evStringTooLongText, thread);
    result->setString("");
}

void evStrcat(EV_FUNCTION *, EV_SYMBOL *result, EV_SYMBOL **argv, int thread)
{
    const char *a = evStr(argv, 0), *b = evStr(argv, 1);
    const std::size_t na = std::strlen(a), nb = std::strlen(b);
    if (na + nb > evMaxStringLength)
        return evTooLong(result, thread); // checked before anything is built
    std::string joined;
    joined.reserve(na + nb);
    joined.append(a, na).append(b, nb);
    result->setString(joined.c_str());
}

void evStrcmp(EV_FUNCTION *, EV_SYMBOL *result, EV_SYMBOL **argv, int)
{
    const int c = std::strcmp(evStr(argv, 0), evStr(argv, 1));
    result->setFloat(c < 0 ? -1.0 : (c > 0 ? 1.0 : 0.0));
}

void evStrmatch(EV_FUNCTION *, EV_SYMBOL *result, EV_SYMBOL **argv, int)
{
    result->setFloat(UT_String::match(evStr(argv, 1), evStr(argv, 0), true) ? 1.0 : 0.0);
}

void evStrindex(EV_FUNCTION *, EV_SYMBOL *result, EV_SYMBOL **argv, int)
{
    const char *s = evStr(argv, 0);
    const char *found = std::strstr(s, evStr(argv, 1));
    result->setFloat(found ? static_cast<double>(found - s) : -1.0);
}

// ASCII only, like name matching: the locale must not change results.
void evUpcase(EV_FUNCTION *, EV_SYMBOL *result, EV_SYMBOL **argv, int)
{
    std::string s = evStr(argv, 0);
    for (char &c : s)
        if (c >= 'a' && c <= 'z')
            c = static_cast<char>(c - 'a' + 'A');
    result->setString(s.c_str());
}

void evDowncase(EV_FUNCTION *, EV_SYMBOL *result, EV_SYMBOL **argv, int)
{
    std::string s = evStr(argv, 0);
    for (char &c : s)
        if (c >= 'A' && c <= 'Z')
            c = static_cast<char>(c - 'A' + 'a');
    result->setString(s.c_str());
}

void evAtof(EV_FUNCTION *, EV_SYMBOL *result, EV_SYMBOL **argv, int)
{
    result->setFloat(ev_StringToFloat(evStr(argv, 0)));
}

void evFtoa(EV_FUNCTION *, EV_SYMBOL *result, EV_SYMBOL **argv, int)
{
    result->setString(ev_FloatToString(evNum(argv, 0)).c_str());
}

// The width counts the sign. "%.0f" of the truncated magnitude prints any
// finite value's integer part in full, beyond what a long long holds.
void evPadzero(EV_FUNCTION *, EV_SYMBOL *result, EV_SYMBOL **argv, int thread)
{
    const double value = std::trunc(evNum(argv, 1));
    if (!std::isfinite(value))
        return evBadArg(result, thread);
    const std::size_t width = evIndex(evNum(argv, 0), theMaxPadWidth);
    char digits[400];
    std::snprintf(digits, sizeof(digits), "%.0f", std::fabs(value));
    std::string text = value < 0.0 ? "-" : "";
    const std::size_t used = text.size() + std::strlen(digits);
    if (used < width)
        text.append(width - used, '0');
    text += digits;
    result->setString(text.c_str());
}

void evArgc(EV_FUNCTION *, EV_SYMBOL *result, EV_SYMBOL **argv, int)
{
    int words = 0;
    bool inWord = false;
    for (const char *p = evStr(argv, 0); *p; ++p) {
        const bool blank = evIsBlank(*p);
        if (!blank && !inWord)
            ++words;
        inWord = !blank;
    }
    result->setFloat(words);
}

void evArgFn(EV_FUNCTION *, EV_SYMBOL *result, EV_SYMBOL **argv, int)
{
    const char *p = evStr(argv, 0);
    const double n = evNum(argv, 1);
    if (!(n >= 0.0))
        return result->setString("");
    std::size_t want = evIndex(n, std::strlen(p));
    for (;;) {
        while (evIsBlank(*p))
            ++p;
        if (!*p)
            return result->setString("");
        const char *end = p;
        while (*end && !evIsBlank(*end))
            ++end;
        if (want-- == 0)
            return result->setString(std::string(p, end).c_str());
        p = end;
    }
}

// Scans on after each inserted text, never inside it. The result is capped
// as it grows, so nested calls cannot multiply a text's length without bound.
void evStrreplace(EV_FUNCTION *, EV_SYMBOL *result, EV_SYMBOL **argv, int thread)
{
    const std::string text = evStr(argv, 0);
    const std::string from = evStr(argv, 1), to = evStr(argv, 2);
    std::string out;
    if (from.empty()) {
        out = text;
    } else {
        // Built in one pass: replacing in place would shift the tail at every hit.
        std::size_t at = 0;
        for (std::size_t hit = text.find(from); hit != std::string::npos; hit = text.find(from, at)) {
            if (out.size() + (hit - at) + to.size() > evMaxStringLength)
                return evTooLong(result, thread);
            out.append(text, at, hit - at).append(to);
            at = hit + from.size();
        }
        out.append(text, at, std::string::npos);
    }
    if (out.size() > evMaxStringLength)
        return evTooLong(result, thread);
    result->setString(out.c_str());
}

void evSprintf(EV_FUNCTION *, EV_SYMBOL *result, EV_SYMBOL **argv, int thread)
{
    std::string format;
    bool integer = false;
    if (!evSafeFormat(evStr(argv, 0), format, integer))
        return evBadArg(result, thread);
    const double value = evNum(argv, 1);
    const long long whole = evToLongLong(value);
    auto print = [&](char *out, std::size_t size) {
        return integer ? std::snprintf(out, size, format.c_str(), whole)
                       : std::snprintf(out, size, format.c_str(), value);
    };
    const int n = print(nullptr, 0);
    if (n < 0)
        return evBadArg(result, thread);
    std::string text(static_cast<std::size_t>(n) + 1, '\0');
    print(&text[0], text.size());
    text.resize(static_cast<std::size_t>(n));
    result->setString(text.c_str());
}

} // namespace

void evRegisterStringLibrary()
{
    static const int theArgsS[] = {theS};
    static const int theArgsSS[] = {theS, theS};
    static const int theArgsSSS[] = {theS, theS, theS};
    static const int theArgsSFF[] = {theS, theF, theF};
    static const int theArgsSF[] = {theS, theF};
    // Local statics: built on first use, so registration never depends on
    // the order in which translation units initialise.
    static EV_FUNCTION theRecords[] = {
        {0, "strlen", 1, theF, theArgsS, evStrlen},
        {0, "substr", 3, theS, theArgsSFF, evSubstr},
        {0, "strcat", 2, theS, theArgsSS, evStrcat},
        {0, "strcmp", 2, theF, theArgsSS, evStrcmp},
        {0, "strmatch", 2, theF, theArgsSS, evStrmatch},
        {0, "strindex", 2, theF, theArgsSS, evStrindex},
        {0, "upcase", 1, theS, theArgsS, evUpcase},
        {0, "downcase", 1, theS, theArgsS, evDowncase},
        {0, "atof", 1, theF, theArgsS, evAtof},
        {0, "ftoa", 1, theS, nullptr, evFtoa},
        {0, "padzero", 2, theS, nullptr, evPadzero},
        {0, "arg", 2, theS, theArgsSF, evArgFn},
        {0, "argc", 1, theF, theArgsS, evArgc},
        {0, "strreplace", 3, theS, theArgsSSS, evStrreplace},
        {0, "sprintf", 2, theS, theArgsSF, evSprintf},
    };
    for (EV_FUNCTION &record : theRecords)
        ev_AddFunction(&record);
}
