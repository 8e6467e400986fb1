#include "evLexer.h"

#include <ev/EV_Engine.h>

namespace {

bool evIsNameStart(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_'; }
bool evIsDigit(char c) { return c >= '0' && c <= '9'; }
bool evIsNameChar(char c) { return evIsNameStart(c) || evIsDigit(c); }

} // namespace

evTok evLexer::next()
{
    while (*myPos == ' ' || *myPos == '\t' || *myPos == '\n' || *myPos == '\r')
        ++myPos;
    myValue.clear();
    myStart = myPos;
    const char c = *myPos;
    if (!c)
        return myKind = evTok::END;
    if (evIsDigit(c) || (c == '.' && evIsDigit(myPos[1])))
        return myKind = lexNumber();
    if (c == '"' || c == '\'')
        return myKind = lexString(c);
    if (c == '$')
        return myKind = lexVariable();
    if (evIsNameStart(c)) {
        const char *start = myPos;
        while (evIsNameChar(*myPos))
            ++myPos;
        myValue.assign(start, static_cast<std::size_t>(myPos - start));
        return myKind = evTok::IDENT;
    }

    auto two = [&](char second, evTok both, evTok one) {
        if (myPos[1] == second) {
            myPos += 2;
            return both;
        }
        ++myPos;
        return one;
    };
    switch (c) {
    case '(': ++myPos; return myKind = evTok::LPAREN;
    case ')': ++myPos; return myKind = evTok::RPAREN;
    case ',': ++myPos; return myKind = evTok::COMMA;
    case '?': ++myPos; return myKind = evTok::QUESTION;
    case ':': ++myPos; return myKind = evTok::COLON;
    case '+': ++myPos; return myKind = evTok::PLUS;
    case '-': ++myPos; return myKind = evTok::MINUS;
    case '*': ++myPos; return myKind = evTok::STAR;
    case '/': ++myPos; return myKind = evTok::SLASH;
    case '%': ++myPos; return myKind = evTok::PERCENT;
    case '^': ++myPos; return myKind = evTok::CARET;
    case '<': return myKind = two('=', evTok::LE, evTok::LT);
    case '>': return myKind = two('=', evTok::GE, evTok::GT);
    case '!': return myKind = two('=', evTok::NE, evTok::NOT);
    case '=': return myKind = two('=', evTok::EQ, evTok::ERROR);
    case '|': return myKind = two('|', evTok::OR, evTok::ERROR);
    case '&': return myKind = two('&', evTok::AND, evTok::ERROR);
    default: break;
    }
    ++myPos; // the stray character is the token
    return myKind = evTok::ERROR;
}

evTok evLexer::lexNumber()
{
    // The same reading as strings converted to numbers: locale independent,
    // an underflow gives 0, an overflow infinity (literals carry no sign).
    myPos = ev_ScanDecimal(myPos, myNumber);

    // A number glued to a name ("2x", "1e") is not a number.
    if (evIsNameStart(*myPos)) {
        while (evIsNameChar(*myPos))
            ++myPos;
        return evTok::ERROR;
    }
    return evTok::NUMBER;
}

evTok evLexer::lexString(char quote)
{
    ++myPos;
    while (*myPos && *myPos != quote) {
        char c = *myPos++;
        if (c != '\\' || !*myPos) {
            myValue.push_back(c);
            continue;
        }
        char e = *myPos;
        if (quote == '\'') {
            if (e == '\'' || e == '\\') {
                myValue.push_back(e);
                ++myPos;
            } else {
                myValue.push_back('\\');
            }
            continue;
        }
        ++myPos;
        switch (e) {
        case '"': myValue.push_back('"'); break;
        case '\\': myValue.push_back('\\'); break;
        case 'n': myValue.push_back('\n'); break;
        case 't': myValue.push_back('\t'); break;
        default:
            // Kept as written: \$ and \` are the expander's escapes.
            myValue.push_back('\\');
            myValue.push_back(e);
            break;
        }
    }
    if (*myPos != quote)
        return evTok::ERROR; // unterminated
    ++myPos;
    return quote == '"' ? evTok::DSTRING : evTok::SSTRING;
}

evTok evLexer::lexVariable()
{
    ++myPos;
    bool braced = *myPos == '{';
    if (braced)
        ++myPos;
    if (!evIsNameStart(*myPos))
        return evTok::ERROR;
    const char *start = myPos;
    while (evIsNameChar(*myPos))
        ++myPos;
    myValue.assign(start, static_cast<std::size_t>(myPos - start));
    if (braced) {
        if (*myPos != '}')
            return evTok::ERROR;
        ++myPos;
    }
    return evTok::VARIABLE;
}
