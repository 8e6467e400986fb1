#ifndef EV_SYMBOL_H
#define EV_SYMBOL_H

#include <string>

/// Value type codes of the engine. 5 and 6 are kept for vectors and
/// matrices; other codes name types added by the host (the channel library's
/// "localVar" is 10, "define" 12).
enum
{
    EV_TYPEFLOAT = 0,
    EV_TYPESTRING = 1,
    EV_TYPEVECTOR = 5,
    EV_TYPEMATRIX = 6
};

/// A value handed to and returned from a function callback.
///
/// Arguments arrive converted to the types the function declared. A float
/// callback stores its result with setFloat; a string callback with
/// setString, which copies the text into storage the engine provides for
/// the call. Everything a symbol points to lives only during the call.
struct EV_SYMBOL
{
    int type = EV_TYPEFLOAT;
    double fval = 0.0;
    const char *sval = "";
    std::string *storage = nullptr; ///< engine storage for a string result

    double getFloat() const { return fval; }
    const char *getString() const { return sval ? sval : ""; }

    void setFloat(double value) { fval = value; }
    void setString(const char *text)
    {
        if (storage) {
            storage->assign(text ? text : "");
            sval = storage->c_str();
        }
    }
};

#endif
