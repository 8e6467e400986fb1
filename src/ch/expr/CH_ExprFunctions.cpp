#include "CH_ExprFunctions.h"

#include <ch/expr/CH_ExprLibrary.h>
#include <ch/manager/CH_Manager.h>

#include <ch/expr/CH_Expression.h>

#include <ev/EV_Engine.h>
#include <ev/EV_Function.h>

#include <atomic>
#include <cstring>
#include <ev/EV_Symbol.h>

namespace {

// The usage flags ORed into every expression that calls a function: which
// key numbers its segment needs.
enum : unsigned
{
    chInValue = 0x20000,
    chOutValue = 0x40000,
    chSlopes = 0x80000,
    chAccels = 0x200000,
    chMatch = 0x800000 // the match family: neighbours' values and slopes
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

const int theFloatArg[] = {EV_TYPEFLOAT};
const int theStringArg[] = {EV_TYPESTRING};
const int theFloatArgs[] = {EV_TYPEFLOAT, EV_TYPEFLOAT, EV_TYPEFLOAT, EV_TYPEFLOAT};
constexpr unsigned chValues = chInValue | chOutValue;

#define CH_INTERP(flags, name, f) EV_FUNCTION(flags, name, 0, EV_TYPEFLOAT, nullptr, chCall<&CH_Manager::f>, nullptr, nullptr, 1, false)
#define CH_INTERP_P(flags, name, f) EV_FUNCTION(flags, name, 1, EV_TYPEFLOAT, theFloatArg, chCallP<&CH_Manager::f>, nullptr, nullptr, 1, false)

// Interpolation between a segment's keys, in registration order.
EV_FUNCTION theInterpFunctions[] = {
    CH_INTERP(chInValue, "constant", evalConstantFunc),
    CH_INTERP(chValues, "linear", evalLinearFunc),
    CH_INTERP(chValues, "qlinear", evalQlinearFunc),
    CH_INTERP(chValues | chSlopes, "cubic", evalCubicFunc),
    CH_INTERP(chValues, "spline", evalSplineFunc),
    CH_INTERP(chValues | chSlopes | chAccels, "quintic", evalQuinticFunc),
    CH_INTERP(chValues, "ease", evalEaseFunc),
    CH_INTERP_P(chValues, "easep", evalEasepFunc),
    CH_INTERP(chValues, "easein", evalEaseinFunc),
    CH_INTERP_P(chValues, "easeinp", evalEaseinpFunc),
    CH_INTERP(chValues, "easeout", evalEaseoutFunc),
    CH_INTERP_P(chValues, "easeoutp", evalEaseoutpFunc),
    CH_INTERP(chValues | chSlopes | chAccels, "bezier", evalBezierFunc),
};

#define CH_RANGE(name, f) EV_FUNCTION(0, name, 2, EV_TYPEFLOAT, theFloatArgs, chCallPP<&CH_Manager::f>, nullptr, nullptr, 1, false)
#define CH_LIB(name, nargs, result, args, f) EV_FUNCTION(0, name, nargs, result, args, f, nullptr, nullptr, 1, false)

// Matching, replaying, text evaluation and noise, in registration order.
// The vmatch forms keep the segment's own key values, so they use them.
EV_FUNCTION theOtherFunctions[] = {
    CH_INTERP(chMatch, "matchin", evalMatchinFunc),
    CH_INTERP(chMatch, "matchout", evalMatchoutFunc),
    CH_INTERP(chMatch, "match", evalMatchFunc),
    CH_INTERP(chMatch | chInValue, "vmatchin", evalVmatchinFunc),
    CH_INTERP(chMatch | chOutValue, "vmatchout", evalVmatchoutFunc),
    CH_INTERP(chMatch | chValues, "vmatch", evalVmatchFunc),
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

// The argument-free interpolation functions and their records.
struct chInterpolationText
{
    const char *text;
    CH_InterpolationCall call;
};

template <float (CH_Manager::*F)(int)>
float chDirect(CH_Manager &manager, int thread)
{
    return (manager.*F)(thread);
}

chInterpolationText theInterpolations[] = {
    {"constant()", {chDirect<&CH_Manager::evalConstantFunc>, &theInterpFunctions[0], {}}},
    {"linear()", {chDirect<&CH_Manager::evalLinearFunc>, &theInterpFunctions[1], {}}},
    {"qlinear()", {chDirect<&CH_Manager::evalQlinearFunc>, &theInterpFunctions[2], {}}},
    {"cubic()", {chDirect<&CH_Manager::evalCubicFunc>, &theInterpFunctions[3], {}}},
    {"spline()", {chDirect<&CH_Manager::evalSplineFunc>, &theInterpFunctions[4], {}}},
    {"quintic()", {chDirect<&CH_Manager::evalQuinticFunc>, &theInterpFunctions[5], {}}},
    {"ease()", {chDirect<&CH_Manager::evalEaseFunc>, &theInterpFunctions[6], {}}},
    {"easein()", {chDirect<&CH_Manager::evalEaseinFunc>, &theInterpFunctions[8], {}}},
    {"easeout()", {chDirect<&CH_Manager::evalEaseoutFunc>, &theInterpFunctions[10], {}}},
    {"bezier()", {chDirect<&CH_Manager::evalBezierFunc>, &theInterpFunctions[12], {}}}};

} // namespace

const CH_InterpolationCall *CHfindInterpolationCall(const char *text)
{
    if (!text)
        return nullptr;
    for (chInterpolationText &entry : theInterpolations)
    {
        if (std::strcmp(text, entry.text) != 0)
            continue;
        CH_InterpolationCall &call = entry.call;
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
    return nullptr;
}
