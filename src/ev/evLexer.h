#ifndef EV_LEXER_H
#define EV_LEXER_H

#include <string>

enum class evTok
{
    END, ERROR,
    NUMBER, DSTRING, SSTRING, VARIABLE, IDENT,
    LPAREN, RPAREN, COMMA, QUESTION, COLON,
    OR, AND, EQ, NE, LT, LE, GT, GE,
    PLUS, MINUS, STAR, SLASH, PERCENT, NOT, CARET
};

/// Splits an expression text into tokens. Never reads past the text's end;
/// malformed input gives an ERROR token.
class evLexer
{
public:
    explicit evLexer(const char *text) : myText(text ? text : ""), myPos(myText), myStart(myText) {}

    /// Reads the next token into kind() / text() / number().
    evTok next();

    evTok kind() const { return myKind; }
    /// Identifier or variable name, or the decoded contents of a string.
    const std::string &text() const { return myValue; }
    double number() const { return myNumber; }
    /// Where the current token starts in the text (bytes), and the token as
    /// written (empty at the end of the text).
    int offset() const { return static_cast<int>(myStart - myText); }
    std::string written() const { return std::string(myStart, myPos); }

private:
    evTok lexNumber();
    evTok lexString(char quote);
    evTok lexVariable();

    const char *myText;
    const char *myPos;
    const char *myStart; ///< of the current token
    evTok myKind = evTok::END;
    std::string myValue;
    double myNumber = 0.0;
};

#endif
