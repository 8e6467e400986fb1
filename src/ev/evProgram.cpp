#include "evProgram.h"

#include <ev/EV_Function.h>

#include <cstdio>

const char *evOpName(evOp op)
{
    static const char *const theNames[] = {
        "PUSHNUM", "PUSHSTR", "PUSHXSTR", "VAR",
        "NEG", "POS", "NOT",
        "ADD", "SUB", "MUL", "DIV", "MOD", "POW",
        "ADDK", "SUBK", "MULK", "DIVK",
        "EQ", "NE", "LT", "LE", "GT", "GE",
        "TRUTH", "JMP", "JZ", "CALL", "END"};
    return theNames[static_cast<int>(op)];
}

std::string evProgram::disassemble() const
{
    std::string out;
    char buf[64];
    for (const evInstr &in : code) {
        out += evOpName(in.op);
        std::size_t a = static_cast<std::size_t>(in.a);
        switch (in.op) {
        case evOp::PUSHNUM:
        case evOp::ADDK:
        case evOp::SUBK:
        case evOp::MULK:
        case evOp::DIVK:
            std::snprintf(buf, sizeof(buf), " %.17g", numbers[a]);
            out += buf;
            break;
        case evOp::PUSHSTR:
        case evOp::PUSHXSTR:
            out += " \"" + strings[a] + "\"";
            break;
        case evOp::VAR:
            out += " $" + bindings[a].name + (bindings[a].type ? "" : " (unbound)");
            break;
        case evOp::JMP:
        case evOp::JZ:
            out += " " + std::to_string(in.a);
            break;
        case evOp::CALL:
            out += " " + calls[a].slot->name + "/" + std::to_string(calls[a].argc);
            break;
        default:
            break;
        }
        out += '\n';
    }
    return out;
}
