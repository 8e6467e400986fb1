#include "UT_String.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>

namespace {

constexpr std::size_t theNone = static_cast<std::size_t>(-1);

// ASCII only: the locale must not change how names and patterns compare.
char utLower(char c) { return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c; }
char utUpper(char c) { return (c >= 'a' && c <= 'z') ? static_cast<char>(c - 'a' + 'A') : c; }

bool utCharEq(char a, char b, bool case_sensitive)
{
    return a == b || (!case_sensitive && utLower(a) == utLower(b));
}

// Compared as unsigned so that ranges over bytes >= 0x80 behave.
bool utInRange(char c, char lo, char hi)
{
    auto u = static_cast<unsigned char>(c);
    return static_cast<unsigned char>(lo) <= u && u <= static_cast<unsigned char>(hi);
}

// A pattern slice with what the matcher needs to know about its brackets.
struct utPattern
{
    const char *p;
    std::size_t n;
    std::size_t lastClose; // last ']' in the slice, or theNone

    utPattern(const char *pat, std::size_t len) : p(pat), n(len), lastClose(theNone)
    {
        for (std::size_t i = len; i > 0; --i)
            if (pat[i - 1] == ']') {
                lastClose = i - 1;
                break;
            }
    }

    // For a '[' at 'open', finds where the members start and the closing
    // ']'. A ']' right after "[" or "[!" is a member, not the end. Knowing
    // the last ']' up front keeps runs of unclosed '[' from costing a scan
    // each.
    bool findClass(std::size_t open, std::size_t &first, std::size_t &close, bool &negated) const
    {
        std::size_t i = open + 1;
        negated = i < n && (p[i] == '!' || p[i] == '^');
        if (negated)
            ++i;
        first = i;
        if (i < n && p[i] == ']')
            ++i;
        if (lastClose == theNone || lastClose < i)
            return false;
        while (p[i] != ']')
            ++i;
        close = i;
        return true;
    }

    bool classHas(std::size_t first, std::size_t close, char c) const
    {
        for (std::size_t i = first; i < close;) {
            if (i + 2 < close && p[i + 1] == '-') {
                if (utInRange(c, p[i], p[i + 2]))
                    return true;
                i += 3;
            } else {
                if (p[i] == c)
                    return true;
                ++i;
            }
        }
        return false;
    }
};

// Each token other than '*' consumes exactly one character, so on a
// mismatch it is enough to let the most recent '*' swallow one more
// character: earlier stars can never do better. That bounds the work by
// text length times pattern length.
bool utMatch(const char *t, std::size_t tn, const utPattern &pat, bool case_sensitive)
{
    const char *p = pat.p;
    std::size_t ti = 0, pi = 0;
    std::size_t star = theNone, starText = 0;
    while (ti < tn) {
        if (pi < pat.n) {
            char pc = p[pi];
            if (pc == '*') {
                star = ++pi;
                starText = ti;
                continue;
            }
            char tc = t[ti];
            std::size_t first = 0, close = 0;
            bool negated = false;
            bool ok;
            std::size_t next = pi + 1;
            if (pc == '?') {
                ok = true;
            } else if (pc == '[' && pat.findClass(pi, first, close, negated)) {
                bool in = pat.classHas(first, close, tc);
                if (!in && !case_sensitive)
                    in = pat.classHas(first, close, utLower(tc)) ||
                         pat.classHas(first, close, utUpper(tc));
                ok = in != negated;
                next = close + 1;
            } else {
                ok = utCharEq(pc, tc, case_sensitive);
            }
            if (ok) {
                pi = next;
                ++ti;
                continue;
            }
        }
        if (star == theNone)
            return false;
        pi = star;
        ti = ++starText;
    }
    while (pi < pat.n && p[pi] == '*')
        ++pi;
    return pi == pat.n;
}

bool utMultiMatch(const char *t, std::size_t tn, const char *pattern, bool case_sensitive,
                  const char *separators)
{
    if (!pattern)
        return false;
    const char *seps = separators ? separators : "";
    const char *piece = pattern;
    for (;;) {
        std::size_t len = std::strcspn(piece, seps);
        if (len > 0 && utMatch(t, tn, utPattern(piece, len), case_sensitive))
            return true;
        if (piece[len] == '\0')
            return false;
        piece += len + 1;
    }
}

// Position of the next occurrence of 'what' at or after 'from', or theNone.
std::size_t utFind(const std::string &s, const char *what, std::size_t wn, std::size_t from,
                   bool case_sensitive)
{
    if (case_sensitive) {
        std::size_t at = s.find(what, from, wn);
        return at == std::string::npos ? theNone : at;
    }
    if (from > s.size())
        return theNone;
    auto it = std::search(s.begin() + static_cast<std::ptrdiff_t>(from), s.end(), what, what + wn,
                          [](char a, char b) { return utLower(a) == utLower(b); });
    return it == s.end() ? theNone : static_cast<std::size_t>(it - s.begin());
}

bool utIsWholeWord(const std::string &s, std::size_t at, std::size_t len)
{
    return (at == 0 || !UT_String::isNameChar(s[at - 1])) &&
           (at + len == s.size() || !UT_String::isNameChar(s[at + len]));
}

} // namespace

UT_String &UT_String::sprintf(const char *format, ...)
{
    myText.clear();
    if (!format)
        return *this;
    va_list args, again;
    va_start(args, format);
    va_copy(again, args);
    char small[256];
    int n = std::vsnprintf(small, sizeof(small), format, args);
    if (n > 0 && static_cast<std::size_t>(n) < sizeof(small)) {
        myText.assign(small, static_cast<std::size_t>(n));
    } else if (n > 0) {
        myText.resize(static_cast<std::size_t>(n) + 1);
        std::vsnprintf(&myText[0], myText.size(), format, again);
        myText.resize(static_cast<std::size_t>(n));
    }
    va_end(again);
    va_end(args);
    return *this;
}

void UT_String::toLower()
{
    for (char &c : myText)
        c = utLower(c);
}

void UT_String::toUpper()
{
    for (char &c : myText)
        c = utUpper(c);
}

bool UT_String::match(const char *pattern, bool case_sensitive) const
{
    if (!pattern)
        return false;
    return utMatch(myText.data(), myText.size(), utPattern(pattern, std::strlen(pattern)),
                   case_sensitive);
}

bool UT_String::match(const char *text, const char *pattern, bool case_sensitive)
{
    if (!text || !pattern)
        return false;
    return utMatch(text, std::strlen(text), utPattern(pattern, std::strlen(pattern)),
                   case_sensitive);
}

bool UT_String::multiMatch(const char *pattern, bool case_sensitive, const char *separators) const
{
    return utMultiMatch(myText.data(), myText.size(), pattern, case_sensitive, separators);
}

bool UT_String::multiMatch(const char *text, const char *pattern, bool case_sensitive,
                           const char *separators)
{
    if (!text)
        return false;
    return utMultiMatch(text, std::strlen(text), pattern, case_sensitive, separators);
}

bool UT_String::findString(const char *text, bool whole_word, bool case_sensitive) const
{
    if (!text || !*text)
        return false;
    std::size_t len = std::strlen(text);
    for (std::size_t at = utFind(myText, text, len, 0, case_sensitive); at != theNone;
         at = utFind(myText, text, len, at + 1, case_sensitive)) {
        if (!whole_word || utIsWholeWord(myText, at, len))
            return true;
    }
    return false;
}

int UT_String::changeString(const char *from, const char *to, bool whole_word)
{
    if (!from || !*from)
        return 0;
    if (!to)
        to = "";
    std::size_t len = std::strlen(from);
    std::string out;
    std::size_t copied = 0; // myText before this is already in 'out'
    int count = 0;
    std::size_t at = utFind(myText, from, len, 0, true);
    while (at != theNone) {
        // A rejected occurrence may overlap a later, bounded one, so step by
        // one character there; after a replacement skip the whole match.
        if (whole_word && !utIsWholeWord(myText, at, len)) {
            at = utFind(myText, from, len, at + 1, true);
            continue;
        }
        out.append(myText, copied, at - copied);
        out.append(to);
        copied = at + len;
        ++count;
        at = utFind(myText, from, len, copied, true);
    }
    if (count > 0) {
        out.append(myText, copied, std::string::npos);
        myText.swap(out);
    }
    return count;
}
