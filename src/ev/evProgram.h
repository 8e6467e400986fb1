#ifndef EV_PROGRAM_H
#define EV_PROGRAM_H

// The compiled form of an expression: a flat instruction array run by the
// evaluator over a value stack whose depth is known after compiling.
//
// Instruction set (one line each; "a" is the instruction's operand):
//   PUSHNUM  a   push numbers[a]
//   PUSHSTR  a   push strings[a] (a single-quoted or plain literal)
//   PUSHXSTR a   push strings[a] passed through the string expander
//   VAR      a   push the value of bindings[a] (bound: read through its type;
//                unbound: resolved by name)
//   NEG POS NOT  unary minus, conversion to float, logical not (1 or 0)
//   ADD SUB MUL DIV MOD POW       arithmetic; ADD concatenates if a string is involved
//   ADDK SUBK MULK DIVK a         the same with numbers[a] as the right operand
//                                 (fused: the common "x * 10" shape; DIVK never by 0)
//   EQ NE LT LE GT GE             comparison (as text when both are strings), 1 or 0
//   TRUTH        replace the top by 1 or 0
//   JMP      a   continue at code[a]
//   JZ       a   pop; continue at code[a] when the value is false
//   CALL     a   call calls[a] with its argc values from the stack
//   END          the value on top is the result

#include <ev/EV_TypeDef.h>

#include <atomic>
#include <cstdint>
#include <string>
#include <cstring>
#include <vector>

class EV_FUNCTION;

enum class evOp : std::uint8_t
{
    PUSHNUM, PUSHSTR, PUSHXSTR, VAR,
    NEG, POS, NOT,
    ADD, SUB, MUL, DIV, MOD, POW,
    ADDK, SUBK, MULK, DIVK,
    EQ, NE, LT, LE, GT, GE,
    TRUTH, JMP, JZ, CALL, END
};

const char *evOpName(evOp op);

struct evInstr
{
    evOp op;
    std::int32_t a;
};

/// The stable place compiled code calls a function name through: a later
/// registration of the name replaces the record here, and slots live as long
/// as the process.
struct evFuncSlot
{
    std::string name;
    std::atomic<EV_FUNCTION *> record{nullptr};
};

struct evCallSite
{
    evFuncSlot *slot;
    int argc;
};

/// A $NAME of the text: bound to a variable type when one claimed it at
/// compile time, else looked up at each evaluation.
struct evBinding
{
    std::string name;
    EV_TYPEDEF *type = nullptr;
    EV_VarBinding binding;
    unsigned orMask = 0; ///< flag-word bits each read sets (time, usage)
};

class evProgram
{
public:
    evProgram() = default;
    // The pointers below may point into this object: never copied or moved.
    evProgram(const evProgram &) = delete;
    evProgram &operator=(const evProgram &) = delete;

    // What every evaluation reads comes first, together with the copy of a
    // short program, so that one or two cache lines serve it.
    int compileError = 0; ///< engine error number; 0 when compiled
    /// True when the program can run on the float-only evaluator; set by
    /// finish() after compiling (and again when bindings change).
    bool floatOnly = false;
    bool usesStrings = false; ///< anything that may make or need a string
    int maxStack = 0;
    int maxArgs = 0;
    // The arrays' data, read once here rather than through each vector in
    // the evaluation loop.
    const evInstr *codePtr = nullptr;
    const double *numberPtr = nullptr;
    const evBinding *bindingPtr = nullptr;
    const evCallSite *callPtr = nullptr;
    alignas(double) unsigned char mySmall[64];
    /// Key-usage bits of the called functions and named variables.
    unsigned keyUsage = 0;

    std::vector<evInstr> code;
    std::vector<double> numbers;
    std::vector<std::string> strings;
    std::vector<evBinding> bindings;
    std::vector<evCallSite> calls;
    /// Where the first compile error was found: byte offset in the text and
    /// the token there as written (-1 and "" when the text compiled).
    int errorOffset = -1;
    std::string errorToken;

    void finish()
    {
        floatOnly = !usesStrings && maxStack <= theFloatStack && maxArgs <= theInlineArgs;
        codePtr = code.data();
        numberPtr = numbers.data();
        bindingPtr = bindings.data();
        callPtr = calls.data();
        // Short programs (a literal, a variable, a call) run from a copy
        // inside the program object instead of from two more allocations.
        std::size_t code_bytes = code.size() * sizeof(evInstr);
        std::size_t number_bytes = numbers.size() * sizeof(double);
        if (code_bytes + number_bytes <= sizeof(mySmall))
        {
            if (number_bytes) // an empty vector's data() may be null
                std::memcpy(mySmall, numbers.data(), number_bytes);
            if (code_bytes)
                std::memcpy(mySmall + number_bytes, code.data(), code_bytes);
            numberPtr = reinterpret_cast<const double *>(mySmall);
            codePtr = reinterpret_cast<const evInstr *>(mySmall + number_bytes);
        }
    }
    static constexpr int theFloatStack = 32;
    static constexpr int theInlineArgs = 8;

    std::string disassemble() const;
};

#endif
