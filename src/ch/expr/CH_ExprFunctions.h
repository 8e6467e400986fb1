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

class CH_Segment;

/// The texts that are exactly a call of one of the library's animation
/// functions without arguments. A segment classifies its text once, when
/// it is set (CH_Segment::getInterpolationKind).
enum class CH_InterpKind : unsigned char
{
    Constant, Linear, QLinear, Cubic, Spline, Quintic, Ease, EaseIn, EaseOut, Bezier,
    MatchIn, MatchOut, Match, VMatchIn, VMatchOut, VMatch,
    // Called without the arguments they need: animation function calls all
    // the same, evaluated (and failing) through the engine.
    EaseP, EaseInP, EaseOutP, Repeat, RepeatT, Cycle, CycleT
};

/// One row of the table of kinds.
struct CH_InterpolationKind
{
    const char *text;
    CH_InterpKind kind;
    /// The CH_SegmentFlags bit the text sets (0 for none).
    unsigned segmentFlag;
    /// The usage bits the function's record carries (key numbers read,
    /// the match bit).
    unsigned usage;
    /// The value: the direct call (evaluate null where the engine must run).
    CH_InterpolationCall call;
    /// The slope d(value)/d(time) of segment s (length at least 1e-5) at
    /// local time t, u its parameter clamped into [0, 1] (exactly 0 or 1 at
    /// a key). Null, or false returned, where there is no exact form.
    bool (*slope)(const CH_Segment &s, float t, double u, double &slope);

    bool isMatch() const;
};

/// The kind of a text, or null for any other text.
const CH_InterpolationKind *CHfindInterpolationKind(const char *text);
/// The direct call of a kind, or null where it has none (or the library's
/// functions are not registered yet).
const CH_InterpolationCall *CHgetInterpolationCall(const CH_InterpolationKind *kind);
/// The direct call for a text, or null for any other text.
const CH_InterpolationCall *CHfindInterpolationCall(const char *text);

#endif
