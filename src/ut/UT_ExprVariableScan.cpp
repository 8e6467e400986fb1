#include "UT_ExprVariableScan.h"
#include "UT_WorkBuffer.h"

#include <cstring>
#include <string>

namespace {

// ASCII only on purpose: names must not change meaning with the locale, and
// bytes above 0x7f must never reach the <cctype> functions as negative ints.
bool utIsNameStart(char c)
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_';
}

bool utIsNameChar(char c)
{
    return utIsNameStart(c) || (c >= '0' && c <= '9');
}

bool utIsMeta(char c)
{
    return c == '\\' || c == '$' || c == '`';
}

class utScanner
{
public:
    utScanner(UT_VarScanCallback variable_callback,
              UT_VarScanCallback expression_callback,
              void *data)
        : myVariable(variable_callback)
        , myExpression(expression_callback)
        , myData(data)
    {
    }

    void scan(const char *text, UT_WorkBuffer &out)
    {
        const char *p = text;
        while (*p) {
            if (*p == '\\')
                p = escape(p, out);
            else if (*p == '$' && myVariable)
                p = variable(p, out);
            else if (*p == '`' && myExpression)
                p = expression(p, out);
            else {
                // Copy a whole run at once; the character at p is always
                // taken so that a meta character with no handler still advances.
                const char *end = p + 1;
                while (*end && !utIsMeta(*end))
                    ++end;
                out.append(p, static_cast<std::size_t>(end - p));
                p = end;
            }
        }
    }

private:
    const char *escape(const char *p, UT_WorkBuffer &out)
    {
        // A backslash protects only the character kinds some pass will
        // interpret; "\\" is not an escape, so the second one may still
        // escape what follows it.
        const char next = p[1];
        if ((next == '$' && myVariable) || (next == '`' && myExpression)) {
            out.append(next);
            return p + 2;
        }
        out.append('\\');
        return p + 1;
    }

    const char *variable(const char *p, UT_WorkBuffer &out)
    {
        const char *end;
        if (p[1] == '{') {
            const char *name = p + 2;
            const char *close = std::strchr(name, '}');
            if (!close) {
                // Nothing after an unclosed brace can be trusted to mean
                // what it seems to, so none of it is expanded.
                out.append(p);
                return p + std::strlen(p);
            }
            end = close + 1;
            if (close == name) {
                out.append(p, static_cast<std::size_t>(end - p));
                return end;
            }
            myArg.assign(name, static_cast<std::size_t>(close - name));
        } else if (utIsNameStart(p[1])) {
            end = p + 2;
            while (utIsNameChar(*end))
                ++end;
            myArg.assign(p + 1, static_cast<std::size_t>(end - p - 1));
        } else {
            out.append('$');
            return p + 1;
        }
        replace(myVariable, p, end, out);
        return end;
    }

    const char *expression(const char *p, UT_WorkBuffer &out)
    {
        myArg.clear();
        const char *q = p + 1;
        while (*q && *q != '`') {
            if (*q == '\\' && q[1] == '`') {
                myArg.push_back('`');
                q += 2;
            } else {
                myArg.push_back(*q);
                ++q;
            }
        }
        if (!*q) {
            out.append(p);
            return q;
        }
        const char *end = q + 1;
        replace(myExpression, p, end, out);
        return end;
    }

    // Appends the callback's answer for myArg, or the reference [begin, end)
    // exactly as written when the callback declines.
    void replace(UT_VarScanCallback callback, const char *begin, const char *end,
                 UT_WorkBuffer &out)
    {
        myValue.clear();
        bool answered;
        try {
            answered = callback(myArg.c_str(), myValue, myData);
        } catch (...) {
            // A throwing callback is treated as a refusal rather than let
            // the exception out of the library.
            answered = false;
        }
        if (answered)
            out.append(myValue.toStdString());
        else
            out.append(begin, static_cast<std::size_t>(end - begin));
    }

    UT_VarScanCallback myVariable;
    UT_VarScanCallback myExpression;
    void *myData;
    // Reused across references to keep allocations per scan, not per
    // reference. Callbacks that recurse get their own scanner.
    std::string myArg;
    UT_WorkBuffer myValue;
};

} // namespace

bool UTExprVariableScan(const char *text,
                        UT_VarScanCallback variable_callback,
                        UT_VarScanCallback expression_callback,
                        void *data,
                        UT_WorkBuffer &result)
{
    if (!text) {
        result.clear();
        return false;
    }
    try {
        // Built aside so that 'text' may point into 'result' itself.
        UT_WorkBuffer out;
        utScanner(variable_callback, expression_callback, data).scan(text, out);

        const std::size_t len = std::strlen(text);
        const bool changed = out.length() != len
            || std::memcmp(out.buffer(), text, len) != 0;
        result.strcpy(out.toStdString());
        return changed;
    } catch (...) {
        // Only allocation can fail here; leave the text unexpanded.
        try {
            result.strcpy(text);
        } catch (...) {
            result.clear();
        }
        return false;
    }
}
