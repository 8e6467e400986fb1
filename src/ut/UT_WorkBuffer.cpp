#include "UT_WorkBuffer.h"
#include "UT_String.h"

#include <cstdarg>
#include <cstdio>

namespace {

// Formats into the end of 'text' without truncating, whatever the length.
int utAppendFormatted(std::string &text, const char *format, va_list args)
{
    if (!format)
        return 0;
    va_list copy;
    va_copy(copy, args);
    char small[256];
    int n = std::vsnprintf(small, sizeof(small), format, copy);
    va_end(copy);
    if (n < 0)
        return 0;
    if (static_cast<std::size_t>(n) < sizeof(small)) {
        text.append(small, static_cast<std::size_t>(n));
        return n;
    }
    std::size_t old = text.size();
    text.resize(old + static_cast<std::size_t>(n) + 1);
    std::vsnprintf(&text[old], static_cast<std::size_t>(n) + 1, format, args);
    text.resize(old + static_cast<std::size_t>(n));
    return n;
}

} // namespace

int UT_WorkBuffer::sprintf(const char *format, ...)
{
    myText.clear();
    va_list args;
    va_start(args, format);
    int n = utAppendFormatted(myText, format, args);
    va_end(args);
    return n;
}

int UT_WorkBuffer::appendSprintf(const char *format, ...)
{
    va_list args;
    va_start(args, format);
    int n = utAppendFormatted(myText, format, args);
    va_end(args);
    return n;
}

void UT_WorkBuffer::copyIntoString(UT_String &out) const
{
    out = UT_String(myText);
}
