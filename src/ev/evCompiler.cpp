#include "evCompiler.h"
#include "evParser.h"
#include "evRegistry.h"

#include <algorithm>

namespace {

class evCompiler
{
public:
    evCompiler(const evAst &ast, evProgram &prog, unsigned &flags, int thread)
        : myAst(ast), myProg(prog), myFlags(flags), myThread(thread) {}

    bool compile(int node)
    {
        const evNode &n = myAst.nodes[static_cast<std::size_t>(node)];
        switch (n.kind) {
        case evNodeKind::NUMBER:
            emit(evOp::PUSHNUM, addNumber(n.number), +1);
            return true;
        case evNodeKind::STRING:
        case evNodeKind::XSTRING:
            myProg.usesStrings = true;
            myProg.strings.push_back(n.text);
            emit(n.kind == evNodeKind::STRING ? evOp::PUSHSTR : evOp::PUSHXSTR,
                 static_cast<int>(myProg.strings.size()) - 1, +1);
            return true;
        case evNodeKind::VARIABLE:
            emit(evOp::VAR, bindVariable(n.text), +1);
            return true;
        case evNodeKind::DEFINE:
            return define(n);
        case evNodeKind::UNARY:
            if (!compile(n.kids[0]))
                return false;
            emit(n.op, 0, 0);
            return true;
        case evNodeKind::BINARY:
            if (!compile(n.kids[0]))
                return false;
            if (fusesConstant(n)) {
                const evNode &k = myAst.nodes[static_cast<std::size_t>(n.kids[1])];
                emit(constantForm(n.op), addNumber(k.number), 0);
                return true;
            }
            if (!compile(n.kids[1]))
                return false;
            emit(n.op, 0, -1);
            return true;
        case evNodeKind::AND:
        case evNodeKind::OR:
            return logical(n);
        case evNodeKind::COND:
            return conditional(n.kids[0], n.kids[1], n.kids[2]);
        case evNodeKind::CALL:
            return call(n);
        }
        return fail(EV_ERRSYNTAX);
    }

    int error() const { return myError; }
    int errorOffset() const { return myErrorOffset; }
    const std::string &errorToken() const { return myErrorToken; }

private:
    int emit(evOp op, int a, int stack_change)
    {
        myProg.code.push_back({op, a});
        myDepth += stack_change;
        myProg.maxStack = std::max(myProg.maxStack, myDepth);
        return static_cast<int>(myProg.code.size()) - 1;
    }
    void patch(int at) { myProg.code[static_cast<std::size_t>(at)].a = static_cast<int>(myProg.code.size()); }

    // "x op literal" for + - * / (not division by zero, which must fail at
    // run time) becomes one instruction.
    bool fusesConstant(const evNode &n) const
    {
        const evNode &k = myAst.nodes[static_cast<std::size_t>(n.kids[1])];
        if (k.kind != evNodeKind::NUMBER)
            return false;
        return n.op == evOp::ADD || n.op == evOp::SUB || n.op == evOp::MUL ||
               (n.op == evOp::DIV && k.number != 0.0);
    }
    static evOp constantForm(evOp op)
    {
        switch (op) {
        case evOp::ADD: return evOp::ADDK;
        case evOp::SUB: return evOp::SUBK;
        case evOp::MUL: return evOp::MULK;
        default: return evOp::DIVK;
        }
    }

    int addNumber(double value)
    {
        myProg.numbers.push_back(value);
        return static_cast<int>(myProg.numbers.size()) - 1;
    }

    bool fail(int error, const evNode *at = nullptr)
    {
        if (!myError) {
            myError = error;
            myErrorOffset = at ? at->offset : 0;
            myErrorToken = at ? at->text : std::string();
        }
        return false;
    }

    // a && b:  a; JZ F; b; TRUTH; JMP E; F: PUSHNUM 0; E:
    // a || b:  a; JZ T; PUSHNUM 1; JMP E; T: b; TRUTH; E:
    bool logical(const evNode &n)
    {
        if (!compile(n.kids[0]))
            return false;
        int jz = emit(evOp::JZ, 0, -1);
        if (n.kind == evNodeKind::AND) {
            if (!compile(n.kids[1]))
                return false;
            emit(evOp::TRUTH, 0, 0);
            int jmp = emit(evOp::JMP, 0, 0);
            patch(jz);
            emit(evOp::PUSHNUM, addNumber(0.0), 0); // same slot as b's result
            patch(jmp);
        } else {
            emit(evOp::PUSHNUM, addNumber(1.0), +1);
            int jmp = emit(evOp::JMP, 0, -1);
            patch(jz);
            if (!compile(n.kids[1]))
                return false;
            emit(evOp::TRUTH, 0, 0);
            patch(jmp);
        }
        return true;
    }

    // c ? a : b:  c; JZ F; a; JMP E; F: b; E:
    bool conditional(int c, int a, int b)
    {
        if (!compile(c))
            return false;
        int jz = emit(evOp::JZ, 0, -1);
        if (!compile(a))
            return false;
        int jmp = emit(evOp::JMP, 0, -1);
        patch(jz);
        if (!compile(b))
            return false;
        patch(jmp);
        return true;
    }

    bool call(const evNode &n)
    {
        int argc = static_cast<int>(n.kids.size());
        // "if" is part of the language: only the chosen branch runs.
        if (n.text == "if") {
            if (argc != 3)
                return fail(EV_ERRNARGS, &n);
            return conditional(n.kids[0], n.kids[1], n.kids[2]);
        }
        evFuncSlot *slot = evRegistry::get().findSlot(n.text);
        EV_FUNCTION *record = slot ? slot->record.load(std::memory_order_acquire) : nullptr;
        if (!record)
            return fail(EV_ERRUNKNOWNFUNC, &n);
        if (record->getNArgs() != argc)
            return fail(EV_ERRNARGS, &n);
        for (int kid : n.kids)
            if (!compile(kid))
                return false;
        myFlags |= record->getUserFlags() & EV_FLAG_MATCH;
        myProg.keyUsage |= record->getUserFlags() & EV_FLAG_KEY_USAGE;
        myProg.calls.push_back({slot, argc});
        myProg.maxArgs = std::max(myProg.maxArgs, argc);
        if (record->getResultType() != EV_TYPEFLOAT)
            myProg.usesStrings = true;
        for (int i = 0; i < argc; ++i)
            if (record->getArgType(i) != EV_TYPEFLOAT)
                myProg.usesStrings = true;
        emit(evOp::CALL, static_cast<int>(myProg.calls.size()) - 1, 1 - argc);
        return true;
    }

    bool define(const evNode &n)
    {
        const std::string &name = n.text;
        double value = 0.0;
        bool found = evRegistry::get().anyDefineType([&](EV_TYPEDEF *type) {
            return type->resolveDefine && type->resolveDefine(name.c_str(), value);
        });
        if (!found)
            return fail(EV_ERRUNDEFINED, &n);
        emit(evOp::PUSHNUM, addNumber(value), +1);
        return true;
    }

    int bindVariable(const std::string &name)
    {
        for (std::size_t i = 0; i < myProg.bindings.size(); ++i)
            if (myProg.bindings[i].name == name)
                return static_cast<int>(i);
        evBinding b;
        b.name = name;
        evRegistry::get().anyVariableType([&](EV_TYPEDEF *type) {
            if (type->resolveVariable && type->resolveVariable(name.c_str(), b.binding, myThread)) {
                b.type = type;
                return true;
            }
            return false;
        });
        if (!b.type || (b.binding.flags & EV_VarBinding::STRING))
            myProg.usesStrings = true; // unbound names may turn out to be strings
        b.orMask = evBindingMask(b.binding);
        myProg.keyUsage |= b.orMask & EV_FLAG_KEY_USAGE;
        myProg.bindings.push_back(std::move(b));
        return static_cast<int>(myProg.bindings.size()) - 1;
    }

    const evAst &myAst;
    evProgram &myProg;
    unsigned &myFlags;
    int myThread;
    int myDepth = 0;
    int myError = 0;
    int myErrorOffset = -1;
    std::string myErrorToken;
};

} // namespace

std::unique_ptr<evProgram> evCompile(const char *text, unsigned &flags, int thread)
{
    auto prog = std::make_unique<evProgram>();
    evAst ast = evParser::parse(text, evRegistry::get().optimization.load(std::memory_order_relaxed) != 0);
    if (ast.error) {
        prog->compileError = ast.error;
        prog->errorOffset = ast.errorOffset;
        prog->errorToken = std::move(ast.errorToken);
        return prog;
    }
    evCompiler compiler(ast, *prog, flags, thread);
    if (!compiler.compile(ast.root)) {
        // A failed program keeps nothing of what was compiled.
        auto failed = std::make_unique<evProgram>();
        failed->compileError = compiler.error();
        failed->errorOffset = compiler.errorOffset();
        failed->errorToken = compiler.errorToken();
        return failed;
    }
    prog->code.push_back({evOp::END, 0});
    prog->finish();
    return prog;
}
