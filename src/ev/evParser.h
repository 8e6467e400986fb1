#ifndef EV_PARSER_H
#define EV_PARSER_H

#include "evLexer.h"
#include "evProgram.h"

#include <initializer_list>
#include <string>
#include <vector>

enum class evNodeKind
{
    NUMBER, STRING, XSTRING, VARIABLE, DEFINE,
    UNARY, BINARY, AND, OR, COND, CALL
};

struct evNode
{
    explicit evNode(evNodeKind k) : kind(k) {}
    evNode(evNodeKind k, std::initializer_list<int> children) : kind(k), kids(children) {}

    evNodeKind kind;
    evOp op = evOp::END;  ///< UNARY / BINARY operator
    double number = 0.0;  ///< NUMBER
    std::string text;     ///< string contents, variable, define or function name
    std::vector<int> kids;
    int depth = 1;        ///< height of the subtree
    int offset = 0;       ///< where its first token starts in the text (CALL, DEFINE)
};

/// The syntax tree of one text, built by evParser.
struct evAst
{
    std::vector<evNode> nodes;
    int root = -1;
    int error = 0; ///< engine error number, 0 when the text parsed
    int errorOffset = -1;   ///< where the token the parser stopped at starts
    std::string errorToken; ///< that token as written ("" at the end of the text)
};

/// Recursive descent over the operator levels of the language, lowest
/// precedence first. Nesting and tree height are capped so that neither the
/// parser nor the compiler can run out of stack on hostile input.
class evParser
{
public:
    static constexpr int theMaxNesting = 200;
    static constexpr int theMaxHeight = 1024;

    /// Parses 'text'; with 'fold' set, arithmetic on literals is computed
    /// now unless it could fail (division by zero, a non-finite result).
    static evAst parse(const char *text, bool fold);

private:
    evParser(const char *text, bool fold) : myLex(text), myFold(fold) {}

    int conditional();
    int logicalOr();
    int logicalAnd();
    int equality();
    int relational();
    int additive();
    int multiplicative();
    int unary();
    int power();
    int primary();

    struct evTokenOp
    {
        evTok token;
        evOp op;
    };
    // One level of left-associative binary operators over the next level.
    int leftAssociative(int (evParser::*next)(), const evTokenOp *ops, std::size_t count);

    int add(evNode node);
    int binary(evOp op, int left, int right);
    int fail(int error = 1);
    bool failed() const { return myAst.error != 0; }
    void advance() { myLex.next(); }

    evLexer myLex;
    bool myFold;
    int myNesting = 0;
    evAst myAst;
};

#endif
