#include "CH_ExprLibrary.h"

#include <ev/EV_ExprFlags.h>

#include <ch/expr/CH_Expression.h>

#include <ev/EV_Function.h>
#include <ev/EV_Symbol.h>

#include <ut/UT_Noise.h>

namespace {

// Time dependence and key usage (and bit 16): what "eval" hands on from
// the text it evaluated to the expression that called it.
constexpr unsigned theUsageBits = EV_FLAG_USAGE_MASK;

// Hands the evaluated text's bits on to the expression that called "eval",
// through the calling thread's gathered flags: the function record is shared
// by every thread, so it does not carry them (two threads evaluating
// different texts would overwrite each other's bits there).
template <typename Evaluate>
void evaluateText(const char *text, int thread, Evaluate evaluate)
{
    CH_Expression expr(text, CH_ORVISH);
    evaluate(expr);
    CH_Expression::addExprFlags(static_cast<int>(expr.getExpressionFlag() & theUsageBits), thread);
}

// The two shared generators: gradient noise, and cellular noise for the
// s-prefixed functions. Seed 0 both; made on first use.
const UT_Noise &noiseOf(int type)
{
    static const UT_Noise theGradient(0, UT_Noise::PERLIN);
    static const UT_Noise theCellular(0, UT_Noise::CELLULAR);
    return type ? theCellular : theGradient;
}

float turbulence(int type, EV_SYMBOL **args, int depth)
{
    return noiseOf(type).turbulence(static_cast<float>(args[0]->getFloat()),
                                    static_cast<float>(args[1]->getFloat()),
                                    static_cast<float>(args[2]->getFloat()), depth, 0.5f, 1.0f);
}

int depthArg(EV_SYMBOL *arg)
{
    double d = arg->getFloat();
    // Saturating conversion: the generator clamps the octave count anyway.
    if (!(d > -1e6))
        return 0;
    return d > 1e6 ? 1000000 : static_cast<int>(d);
}

} // namespace

void chEvalFunction(EV_FUNCTION *, EV_SYMBOL *result, EV_SYMBOL **args, int thread)
{
    float value = 0.0f;
    evaluateText(args[0]->getString(), thread, [&](CH_Expression &e) { value = e.evaluate(thread); });
    result->setFloat(value);
}

void chEvalsFunction(EV_FUNCTION *, EV_SYMBOL *result, EV_SYMBOL **args, int thread)
{
    UT_String value;
    evaluateText(args[0]->getString(), thread, [&](CH_Expression &e) { e.evaluateString(value, thread); });
    result->setString(value.c_str());
}

void chNoiseFunction(EV_FUNCTION *, EV_SYMBOL *result, EV_SYMBOL **args, int)
{
    result->setFloat(turbulence(0, args, 0));
}

void chTurbFunction(EV_FUNCTION *, EV_SYMBOL *result, EV_SYMBOL **args, int)
{
    result->setFloat(turbulence(0, args, depthArg(args[3])));
}

void chSnoiseFunction(EV_FUNCTION *, EV_SYMBOL *result, EV_SYMBOL **args, int)
{
    result->setFloat(turbulence(1, args, 0));
}

void chSturbFunction(EV_FUNCTION *, EV_SYMBOL *result, EV_SYMBOL **args, int)
{
    result->setFloat(turbulence(1, args, depthArg(args[3])));
}
