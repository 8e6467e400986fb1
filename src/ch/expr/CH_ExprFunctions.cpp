#include "CH_ExprFunctions.h"

#include <ch/expr/CH_ExprLibrary.h>
#include <ch/manager/CH_Manager.h>

#include <ch/expr/CH_Expression.h>

#include <ev/EV_Engine.h>
#include <ev/EV_ExprFlags.h>
#include <ev/EV_Function.h>

#include <ch/channel/CH_Bezier.h>
#include <ch/channel/CH_InterpMath.h>
#include <ch/channel/CH_Segment.h>
#include <ch/channel/CH_SegmentFlags.h>
#include <ch/channel/CH_SegmentValues.h>

#include <atomic>
#include <cmath>
#include <cstring>
#include <ev/EV_Symbol.h>

namespace {

// The usage flags ORed into every expression that calls a function: which
// key numbers its segment needs.
enum : unsigned
{
    chInValue = EV_FLAG_INVALUE,
    chOutValue = EV_FLAG_OUTVALUE,
    chSlopes = EV_FLAG_SLOPES,
    chAccels = EV_FLAG_ACCELS,
    chMatch = EV_FLAG_MATCH // the match family: neighbours' values and slopes
};

// The callbacks hand the engine's thread to the current manager's function.
template <float (CH_Manager::*F)(int)>
void chCall(EV_FUNCTION *, EV_SYMBOL *result, EV_SYMBOL **, int thread)
{
    CH_Manager *manager = CH_Manager::getContext();
    result->setFloat(manager ? (manager->*F)(thread) : 0.0f);
}

template <float (CH_Manager::*F)(float, int)>
void chCallP(EV_FUNCTION *, EV_SYMBOL *result, EV_SYMBOL **args, int thread)
{
    CH_Manager *manager = CH_Manager::getContext();
    float p = static_cast<float>(args[0]->getFloat());
    result->setFloat(manager ? (manager->*F)(p, thread) : 0.0f);
}

template <float (CH_Manager::*F)(float, float, int)>
void chCallPP(EV_FUNCTION *, EV_SYMBOL *result, EV_SYMBOL **args, int thread)
{
    CH_Manager *manager = CH_Manager::getContext();
    float first = static_cast<float>(args[0]->getFloat());
    float last = static_cast<float>(args[1]->getFloat());
    result->setFloat(manager ? (manager->*F)(first, last, thread) : 0.0f);
}

constexpr unsigned chValues = chInValue | chOutValue;

// What each kind's function reads, for its record and the table of kinds.
constexpr unsigned chUsage(CH_InterpKind kind)
{
    switch (kind)
    {
    case CH_InterpKind::Constant: return chInValue;
    case CH_InterpKind::Cubic: return chValues | chSlopes;
    case CH_InterpKind::Quintic:
    case CH_InterpKind::Bezier: return chValues | chSlopes | chAccels;
    case CH_InterpKind::MatchIn:
    case CH_InterpKind::MatchOut:
    case CH_InterpKind::Match: return chMatch;
    case CH_InterpKind::VMatchIn: return chMatch | chInValue;
    case CH_InterpKind::VMatchOut: return chMatch | chOutValue;
    case CH_InterpKind::VMatch: return chMatch | chValues;
    case CH_InterpKind::Repeat:
    case CH_InterpKind::RepeatT:
    case CH_InterpKind::Cycle:
    case CH_InterpKind::CycleT: return 0;
    default: return chValues;
    }
}

const int theFloatArg[] = {EV_TYPEFLOAT};
const int theStringArg[] = {EV_TYPESTRING};
const int theFloatArgs[] = {EV_TYPEFLOAT, EV_TYPEFLOAT, EV_TYPEFLOAT, EV_TYPEFLOAT};

#define CH_INTERP(flags, name, f) EV_FUNCTION(flags, name, 0, EV_TYPEFLOAT, nullptr, chCall<&CH_Manager::f>, nullptr, nullptr, 1, false)
#define CH_INTERP_P(flags, name, f) EV_FUNCTION(flags, name, 1, EV_TYPEFLOAT, theFloatArg, chCallP<&CH_Manager::f>, nullptr, nullptr, 1, false)

// Interpolation between a segment's keys, in registration order.
EV_FUNCTION theInterpFunctions[] = {
    CH_INTERP(chUsage(CH_InterpKind::Constant), "constant", evalConstantFunc),
    CH_INTERP(chUsage(CH_InterpKind::Linear), "linear", evalLinearFunc),
    CH_INTERP(chUsage(CH_InterpKind::QLinear), "qlinear", evalQlinearFunc),
    CH_INTERP(chUsage(CH_InterpKind::Cubic), "cubic", evalCubicFunc),
    CH_INTERP(chUsage(CH_InterpKind::Spline), "spline", evalSplineFunc),
    CH_INTERP(chUsage(CH_InterpKind::Quintic), "quintic", evalQuinticFunc),
    CH_INTERP(chUsage(CH_InterpKind::Ease), "ease", evalEaseFunc),
    CH_INTERP_P(chUsage(CH_InterpKind::EaseP), "easep", evalEasepFunc),
    CH_INTERP(chUsage(CH_InterpKind::EaseIn), "easein", evalEaseinFunc),
    CH_INTERP_P(chUsage(CH_InterpKind::EaseInP), "easeinp", evalEaseinpFunc),
    CH_INTERP(chUsage(CH_InterpKind::EaseOut), "easeout", evalEaseoutFunc),
    CH_INTERP_P(chUsage(CH_InterpKind::EaseOutP), "easeoutp", evalEaseoutpFunc),
    CH_INTERP(chUsage(CH_InterpKind::Bezier), "bezier", evalBezierFunc),
};

#define CH_RANGE(name, f) EV_FUNCTION(0, name, 2, EV_TYPEFLOAT, theFloatArgs, chCallPP<&CH_Manager::f>, nullptr, nullptr, 1, false)
#define CH_LIB(name, nargs, result, args, f) EV_FUNCTION(0, name, nargs, result, args, f, nullptr, nullptr, 1, false)

// Matching, replaying, text evaluation and noise, in registration order.
// The vmatch forms keep the segment's own key values, so they use them.
EV_FUNCTION theOtherFunctions[] = {
    CH_INTERP(chUsage(CH_InterpKind::MatchIn), "matchin", evalMatchinFunc),
    CH_INTERP(chUsage(CH_InterpKind::MatchOut), "matchout", evalMatchoutFunc),
    CH_INTERP(chUsage(CH_InterpKind::Match), "match", evalMatchFunc),
    CH_INTERP(chUsage(CH_InterpKind::VMatchIn), "vmatchin", evalVmatchinFunc),
    CH_INTERP(chUsage(CH_InterpKind::VMatchOut), "vmatchout", evalVmatchoutFunc),
    CH_INTERP(chUsage(CH_InterpKind::VMatch), "vmatch", evalVmatchFunc),
    CH_RANGE("repeat", evalRepeatFunc),
    CH_RANGE("repeatt", evalRepeattFunc),
    CH_RANGE("cycle", evalCycleFunc),
    CH_RANGE("cyclet", evalCycletFunc),
    CH_LIB("eval", 1, EV_TYPEFLOAT, theStringArg, chEvalFunction),
    CH_LIB("evals", 1, EV_TYPESTRING, theStringArg, chEvalsFunction),
    CH_LIB("noise", 3, EV_TYPEFLOAT, theFloatArgs, chNoiseFunction),
    CH_LIB("turb", 4, EV_TYPEFLOAT, theFloatArgs, chTurbFunction),
    CH_LIB("snoise", 3, EV_TYPEFLOAT, theFloatArgs, chSnoiseFunction),
    CH_LIB("sturb", 4, EV_TYPEFLOAT, theFloatArgs, chSturbFunction),
};

#undef CH_INTERP
#undef CH_INTERP_P
#undef CH_RANGE
#undef CH_LIB

} // namespace

EV_FUNCTION **CHgetExpressionFunctionTable()
{
    static EV_FUNCTION *theTable[] = {
        &theInterpFunctions[0], &theInterpFunctions[1], &theInterpFunctions[2],
        &theInterpFunctions[3], &theInterpFunctions[4], &theInterpFunctions[5],
        &theInterpFunctions[6], &theInterpFunctions[7], &theInterpFunctions[8],
        &theInterpFunctions[9], &theInterpFunctions[10], &theInterpFunctions[11],
        &theInterpFunctions[12],
        &theOtherFunctions[0], &theOtherFunctions[1], &theOtherFunctions[2],
        &theOtherFunctions[3], &theOtherFunctions[4], &theOtherFunctions[5],
        &theOtherFunctions[6], &theOtherFunctions[7], &theOtherFunctions[8],
        &theOtherFunctions[9], &theOtherFunctions[10], &theOtherFunctions[11],
        &theOtherFunctions[12], &theOtherFunctions[13], &theOtherFunctions[14],
        &theOtherFunctions[15],
        nullptr};
    return theTable;
}

namespace {

template <float (CH_Manager::*F)(int)>
float chDirect(CH_Manager &manager, int thread)
{
    return (manager.*F)(thread);
}

// Slopes of the kinds with an exact form (the values are the functions').
bool chConstantSlope(const CH_Segment &, float, double, double &slope)
{
    slope = 0.0;
    return true;
}

bool chLinearSlope(const CH_Segment &s, float, double, double &slope)
{
    double in = s.getInValue(), out = s.getOutValue();
    slope = (out - in) / double(s.getLength());
    return true;
}

bool chCubicSlope(const CH_Segment &s, float, double u, double &slope)
{
    slope = CHhermiteCubicSlope<double>(s.getInValue(), s.getInSlope(), s.getOutValue(), s.getOutSlope(),
                                        s.getLength(), u);
    return true;
}

bool chQuinticSlope(const CH_Segment &s, float, double u, double &slope)
{
    double length = s.getLength();
    CH_Quintic<double> q(s.getInValue(), s.getOutValue(), s.getInSlope(), s.getOutSlope(), s.getInAccel(),
                         s.getOutAccel(), length);
    slope = q.slope(u, length);
    return true;
}

template <CH_EaseShape Shape>
bool chEaseSlope(const CH_Segment &s, float, double u, double &slope)
{
    double in = s.getInValue(), out = s.getOutValue();
    slope = CHeaseSlope(Shape, out - in, s.getLength(), u);
    return true;
}

bool chBezierSlope(const CH_Segment &s, float t, double u, double &slope)
{
    CH_Bezier curve{CH_SegmentValues(s)};
    // At a key its own parameter: solving the time cubic there can land on
    // the other end's root when the key's rounds out of [0, 1].
    double w = u == 0.0 || u == 1.0 ? u : curve.timeToParametric(t);
    auto derivative = [w](const float *p) {
        double v = 1.0 - w;
        return 3.0 * (v * v * (p[1] - p[0]) + 2.0 * v * w * (p[2] - p[1]) + w * w * (p[3] - p[2]));
    };
    double dx = derivative(curve.myX), dy = derivative(curve.myY);
    if (std::fabs(dx) <= 1e-9 * s.getLength())
        return false; // a handle without time extent: no usable tangent here
    slope = dy / dx;
    return true;
}

using F = CH_SegmentFlags;

// Every kind: its text, segment flag, usage, direct call and slope.
CH_InterpolationKind theKinds[] = {
    {"constant()", CH_InterpKind::Constant, F::CONSTANT, chUsage(CH_InterpKind::Constant),
     {chDirect<&CH_Manager::evalConstantFunc>, &theInterpFunctions[0], {}}, chConstantSlope},
    {"linear()", CH_InterpKind::Linear, F::LINEAR, chUsage(CH_InterpKind::Linear),
     {chDirect<&CH_Manager::evalLinearFunc>, &theInterpFunctions[1], {}}, chLinearSlope},
    {"qlinear()", CH_InterpKind::QLinear, F::QLINEAR, chUsage(CH_InterpKind::QLinear),
     {chDirect<&CH_Manager::evalQlinearFunc>, &theInterpFunctions[2], {}}, nullptr},
    {"cubic()", CH_InterpKind::Cubic, F::CUBIC, chUsage(CH_InterpKind::Cubic),
     {chDirect<&CH_Manager::evalCubicFunc>, &theInterpFunctions[3], {}}, chCubicSlope},
    {"spline()", CH_InterpKind::Spline, F::SPLINE, chUsage(CH_InterpKind::Spline),
     {chDirect<&CH_Manager::evalSplineFunc>, &theInterpFunctions[4], {}}, nullptr},
    {"quintic()", CH_InterpKind::Quintic, 0, chUsage(CH_InterpKind::Quintic),
     {chDirect<&CH_Manager::evalQuinticFunc>, &theInterpFunctions[5], {}}, chQuinticSlope},
    {"ease()", CH_InterpKind::Ease, F::EASE, chUsage(CH_InterpKind::Ease),
     {chDirect<&CH_Manager::evalEaseFunc>, &theInterpFunctions[6], {}}, chEaseSlope<CH_EaseShape::Both>},
    {"easein()", CH_InterpKind::EaseIn, F::EASEIN, chUsage(CH_InterpKind::EaseIn),
     {chDirect<&CH_Manager::evalEaseinFunc>, &theInterpFunctions[8], {}}, chEaseSlope<CH_EaseShape::In>},
    {"easeout()", CH_InterpKind::EaseOut, F::EASEOUT, chUsage(CH_InterpKind::EaseOut),
     {chDirect<&CH_Manager::evalEaseoutFunc>, &theInterpFunctions[10], {}}, chEaseSlope<CH_EaseShape::Out>},
    {"bezier()", CH_InterpKind::Bezier, F::BEZIER, chUsage(CH_InterpKind::Bezier),
     {chDirect<&CH_Manager::evalBezierFunc>, &theInterpFunctions[12], {}}, chBezierSlope},
    {"matchin()", CH_InterpKind::MatchIn, 0, chUsage(CH_InterpKind::MatchIn), {}, nullptr},
    {"matchout()", CH_InterpKind::MatchOut, 0, chUsage(CH_InterpKind::MatchOut), {}, nullptr},
    {"match()", CH_InterpKind::Match, 0, chUsage(CH_InterpKind::Match), {}, nullptr},
    {"vmatchin()", CH_InterpKind::VMatchIn, 0, chUsage(CH_InterpKind::VMatchIn), {}, nullptr},
    {"vmatchout()", CH_InterpKind::VMatchOut, 0, chUsage(CH_InterpKind::VMatchOut), {}, nullptr},
    {"vmatch()", CH_InterpKind::VMatch, 0, chUsage(CH_InterpKind::VMatch), {}, nullptr},
    {"easep()", CH_InterpKind::EaseP, 0, chUsage(CH_InterpKind::EaseP), {}, nullptr},
    {"easeinp()", CH_InterpKind::EaseInP, 0, chUsage(CH_InterpKind::EaseInP), {}, nullptr},
    {"easeoutp()", CH_InterpKind::EaseOutP, 0, chUsage(CH_InterpKind::EaseOutP), {}, nullptr},
    {"repeat()", CH_InterpKind::Repeat, 0, chUsage(CH_InterpKind::Repeat), {}, nullptr},
    {"repeatt()", CH_InterpKind::RepeatT, 0, chUsage(CH_InterpKind::RepeatT), {}, nullptr},
    {"cycle()", CH_InterpKind::Cycle, 0, chUsage(CH_InterpKind::Cycle), {}, nullptr},
    {"cyclet()", CH_InterpKind::CycleT, 0, chUsage(CH_InterpKind::CycleT), {}, nullptr},
};

} // namespace

bool CH_InterpolationKind::isMatch() const { return (usage & chMatch) != 0; }

const CH_InterpolationKind *CHfindInterpolationKind(const char *text)
{
    if (!text)
        return nullptr;
    for (const CH_InterpolationKind &kind : theKinds)
        if (!std::strcmp(text, kind.text))
            return &kind;
    return nullptr;
}

const CH_InterpolationCall *CHgetInterpolationCall(const CH_InterpolationKind *kind)
{
    if (!kind || !kind->call.evaluate)
        return nullptr;
    // The table is the library's own: the entry's slot is filled in place.
    CH_InterpolationCall &call = const_cast<CH_InterpolationCall &>(kind->call);
    if (!call.slot.load(std::memory_order_acquire))
    {
        // Null until the library has registered its functions.
        const std::atomic<EV_FUNCTION *> *slot = ev_FindFunctionSlot(call.record->getName());
        if (!slot)
            return nullptr;
        call.slot.store(slot, std::memory_order_release);
    }
    return &call;
}

const CH_InterpolationCall *CHfindInterpolationCall(const char *text)
{
    return CHgetInterpolationCall(CHfindInterpolationKind(text));
}
