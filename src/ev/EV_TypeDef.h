#ifndef EV_TYPEDEF_H
#define EV_TYPEDEF_H

#include <string>

/// What a variable type hands back when it claims a $NAME: an opaque handle
/// the type understands, and flags.
struct EV_VarBinding
{
    enum : unsigned
    {
        STRING = 0x1,   ///< string valued (else float)
        TIME_DEP = 0x2, ///< reading it makes the expression time dependent
        /// Bits of the expression flag word (uses in value, slopes, ...)
        /// that reading the variable implies; they are ORed in at each read.
        USAGE_MASK = 0xffff0000u
    };
    const void *handle = nullptr;
    long long id = 0;
    unsigned flags = 0;
};

/// A type added by the host.
///
/// Added with ev_AddType, a type can resolve defines: bare names in a text,
/// looked up once when the text is compiled (resolveDefine).
/// Added with ev_AddVariableType, it is offered every $NAME when a text is
/// compiled (resolveVariable; the first type to claim a name binds it), and
/// at evaluation reads the bound value on the evaluating thread
/// (getFloat / getString). The same callbacks are tried again at every
/// evaluation for names that no type claimed when compiled.
struct EV_TYPEDEF
{
    int type = 0;
    const char *name = "";
    bool (*resolveDefine)(const char *name, double &value) = nullptr;
    bool (*resolveVariable)(const char *name, EV_VarBinding &binding, int thread) = nullptr;
    double (*getFloat)(const EV_VarBinding &binding, int thread) = nullptr;
    void (*getString)(const EV_VarBinding &binding, std::string &value, int thread) = nullptr;
};

#endif
