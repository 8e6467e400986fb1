#include "evParser.h"

#include <algorithm>
#include <cmath>

namespace {

// Evaluates arithmetic on two literals; false when folding would hide a
// run-time error or produce a non-finite value.
bool evFoldBinary(evOp op, double a, double b, double &out)
{
    switch (op) {
    case evOp::ADD: out = a + b; break;
    case evOp::SUB: out = a - b; break;
    case evOp::MUL: out = a * b; break;
    case evOp::DIV: if (b == 0.0) return false; out = a / b; break;
    case evOp::MOD: if (b == 0.0) return false; out = std::fmod(a, b); break;
    case evOp::POW: out = std::pow(a, b); break;
    default: return false;
    }
    return std::isfinite(out);
}

} // namespace

evAst evParser::parse(const char *text, bool fold)
{
    evParser p(text, fold);
    p.advance();
    int root = p.conditional();
    if (!p.failed() && p.myLex.kind() != evTok::END)
        p.fail();
    p.myAst.root = p.failed() ? -1 : root;
    return std::move(p.myAst);
}

int evParser::fail(int error)
{
    if (!myAst.error) {
        myAst.error = error;
        myAst.errorOffset = myLex.offset();
        myAst.errorToken = myLex.written();
    }
    return -1;
}

int evParser::add(evNode node)
{
    for (int k : node.kids)
        node.depth = std::max(node.depth, myAst.nodes[static_cast<std::size_t>(k)].depth + 1);
    if (node.depth > theMaxHeight)
        return fail();
    myAst.nodes.push_back(std::move(node));
    return static_cast<int>(myAst.nodes.size()) - 1;
}

int evParser::binary(evOp op, int left, int right)
{
    if (failed() || left < 0 || right < 0)
        return fail();
    const evNode &l = myAst.nodes[static_cast<std::size_t>(left)];
    const evNode &r = myAst.nodes[static_cast<std::size_t>(right)];
    double folded;
    if (myFold && l.kind == evNodeKind::NUMBER && r.kind == evNodeKind::NUMBER &&
        evFoldBinary(op, l.number, r.number, folded)) {
        evNode n{evNodeKind::NUMBER};
        n.number = folded;
        return add(std::move(n));
    }
    evNode n(evNodeKind::BINARY, {left, right});
    n.op = op;
    return add(std::move(n));
}

int evParser::conditional()
{
    if (++myNesting > theMaxNesting) {
        --myNesting;
        return fail();
    }
    int cond = logicalOr();
    if (!failed() && myLex.kind() == evTok::QUESTION) {
        advance();
        int yes = conditional();
        if (failed() || myLex.kind() != evTok::COLON) {
            --myNesting;
            return fail();
        }
        advance();
        int no = conditional();
        if (!failed()) {
            evNode n(evNodeKind::COND, {cond, yes, no});
            
            cond = add(std::move(n));
        }
    }
    --myNesting;
    return failed() ? -1 : cond;
}

int evParser::logicalOr()
{
    int left = logicalAnd();
    while (!failed() && myLex.kind() == evTok::OR) {
        advance();
        int right = logicalAnd();
        if (failed())
            break;
        evNode n(evNodeKind::OR, {left, right});
        
        left = add(std::move(n));
    }
    return left;
}

int evParser::logicalAnd()
{
    int left = equality();
    while (!failed() && myLex.kind() == evTok::AND) {
        advance();
        int right = equality();
        if (failed())
            break;
        evNode n(evNodeKind::AND, {left, right});
        
        left = add(std::move(n));
    }
    return left;
}

int evParser::leftAssociative(int (evParser::*next)(), const evTokenOp *ops, std::size_t count)
{
    int left = (this->*next)();
    while (!failed()) {
        const evTokenOp *hit = std::find_if(ops, ops + count,
                                            [&](const evTokenOp &o) { return o.token == myLex.kind(); });
        if (hit == ops + count)
            break;
        advance();
        left = binary(hit->op, left, (this->*next)());
    }
    return left;
}

int evParser::equality()
{
    static const evTokenOp theOps[] = {{evTok::EQ, evOp::EQ}, {evTok::NE, evOp::NE}};
    return leftAssociative(&evParser::relational, theOps, 2);
}

int evParser::relational()
{
    static const evTokenOp theOps[] = {
        {evTok::LT, evOp::LT}, {evTok::LE, evOp::LE}, {evTok::GT, evOp::GT}, {evTok::GE, evOp::GE}};
    return leftAssociative(&evParser::additive, theOps, 4);
}

int evParser::additive()
{
    static const evTokenOp theOps[] = {{evTok::PLUS, evOp::ADD}, {evTok::MINUS, evOp::SUB}};
    return leftAssociative(&evParser::multiplicative, theOps, 2);
}

int evParser::multiplicative()
{
    static const evTokenOp theOps[] = {
        {evTok::STAR, evOp::MUL}, {evTok::SLASH, evOp::DIV}, {evTok::PERCENT, evOp::MOD}};
    return leftAssociative(&evParser::unary, theOps, 3);
}

int evParser::unary()
{
    evOp op;
    switch (myLex.kind()) {
    case evTok::MINUS: op = evOp::NEG; break;
    case evTok::PLUS: op = evOp::POS; break;
    case evTok::NOT: op = evOp::NOT; break;
    default: return power();
    }
    if (++myNesting > theMaxNesting) {
        --myNesting;
        return fail();
    }
    advance();
    int operand = unary();
    --myNesting;
    if (failed())
        return -1;
    const evNode &o = myAst.nodes[static_cast<std::size_t>(operand)];
    if (myFold && op != evOp::NOT && o.kind == evNodeKind::NUMBER) {
        evNode n{evNodeKind::NUMBER};
        n.number = op == evOp::NEG ? -o.number : o.number;
        return add(std::move(n));
    }
    evNode n(evNodeKind::UNARY, {operand});
    n.op = op;
    return add(std::move(n));
}

int evParser::power()
{
    int base = primary();
    if (failed() || myLex.kind() != evTok::CARET)
        return base;
    if (++myNesting > theMaxNesting) {
        --myNesting;
        return fail();
    }
    advance();
    // The exponent may carry a sign (2^-1) and associates to the right.
    int exponent = unary();
    --myNesting;
    return binary(evOp::POW, base, exponent);
}

int evParser::primary()
{
    switch (myLex.kind()) {
    case evTok::NUMBER: {
        evNode n{evNodeKind::NUMBER};
        n.number = myLex.number();
        advance();
        return add(std::move(n));
    }
    case evTok::SSTRING:
    case evTok::DSTRING: {
        evNode n{evNodeKind::STRING};
        n.text = myLex.text();
        // Only texts the expander could change are expanded at run time.
        if (myLex.kind() == evTok::DSTRING && n.text.find_first_of("$`") != std::string::npos)
            n.kind = evNodeKind::XSTRING;
        advance();
        return add(std::move(n));
    }
    case evTok::VARIABLE: {
        evNode n{evNodeKind::VARIABLE};
        n.text = myLex.text();
        advance();
        return add(std::move(n));
    }
    case evTok::IDENT: {
        std::string name = myLex.text();
        const int at = myLex.offset();
        advance();
        if (myLex.kind() != evTok::LPAREN) {
            evNode n{evNodeKind::DEFINE};
            n.text = std::move(name);
            n.offset = at;
            return add(std::move(n));
        }
        if (++myNesting > theMaxNesting) {
            --myNesting;
            return fail();
        }
        advance();
        evNode n{evNodeKind::CALL};
        n.text = std::move(name);
        n.offset = at;
        if (myLex.kind() != evTok::RPAREN) {
            for (;;) {
                int arg = conditional();
                if (failed())
                    break;
                n.kids.push_back(arg);
                if (myLex.kind() == evTok::COMMA) {
                    advance();
                    continue;
                }
                break;
            }
        }
        --myNesting;
        if (failed() || myLex.kind() != evTok::RPAREN)
            return fail();
        advance();
        return add(std::move(n));
    }
    case evTok::LPAREN: {
        advance();
        int inner = conditional();
        if (failed() || myLex.kind() != evTok::RPAREN)
            return fail();
        advance();
        return inner;
    }
    default:
        return fail();
    }
}
