#ifndef CH_EXPRFUNCTIONS_H
#define CH_EXPRFUNCTIONS_H

#include <atomic>

class EV_FUNCTION;

/// The expression functions the library registers with the engine, in
/// registration order, ended by null (docs/functions.md lists them).
EV_FUNCTION **CHgetExpressionFunctionTable();

class CH_Manager;

/// How a segment whose text is exactly the call of one of the library's
/// argument-free interpolation functions ("linear()", "bezier()", ...) calls
/// it without running the engine's machine. The call is only taken while
/// the record registered under the name is still the library's own, and
/// records itself in the expression's flag word as the engine would
/// (evaluated, plus the record's usage flags).
struct CH_InterpolationCall
{
    float (*evaluate)(CH_Manager &manager, int thread);
    EV_FUNCTION *record;
    /// Where the engine keeps the name's record (found at registration).
    std::atomic<const std::atomic<EV_FUNCTION *> *> slot;

    /// True when the library's record is the registered one.
    bool current() const
    {
        const std::atomic<EV_FUNCTION *> *s = slot.load(std::memory_order_acquire);
        return s && s->load(std::memory_order_acquire) == record;
    }
};

/// The direct call for such a text, or null for any other text.
const CH_InterpolationCall *CHfindInterpolationCall(const char *text);

#endif
