// A segment's value and slope at a time, for the match functions.
#include <ch/channel/CH_Channel.h>

#include <ch/expr/CH_EvalBoundary.h>
#include <ch/expr/CH_ExprFunctions.h>
#include <ch/manager/CH_Manager.h>
#include <ut/UT_ScopeExit.h>

#include <cmath>

namespace {

// d(value)/d(time) of the segment's function at local time t, through its
// kind's exact form, the parameter clamped into the segment and, at a key
// (within the tolerance, as the time may have gone through the channel's
// start and back), the key's own. False when there is no exact form.
bool exactSlope(const CH_Segment &s, float t, float tol, double &slope)
{
    const CH_InterpolationKind *kind = s.getInterpolationKind();
    if (!kind || !kind->slope)
        return false;
    double length = s.getLength();
    if (std::fabs(length) < 1e-5)
    {
        slope = 0.0;
        return true;
    }
    double u = (t - s.getStart()) / length;
    u = u < 0.0 || t - s.getStart() <= tol ? 0.0 : (u > 1.0 || s.getEnd() - t <= tol ? 1.0 : u);
    return kind->slope(s, t, u, slope);
}

} // namespace

void CH_Channel::sampleValueSlope(CH_Segment *s, float global_time, int thread, float &value,
                                  float &slope)
{
    value = slope = 0.0f;
    CH_EvalBoundary::run(
        thread, [&] { sampleValueSlopeAt(s, global_time, thread, value, slope); },
        [&] { value = slope = 0.0f; });
}

void CH_Channel::sampleValueSlopeAt(CH_Segment *s, float global_time, int thread, float &value,
                                    float &slope)
{
    if (!s || !myManager)
        return;
    float t = global_time - myStart;
    // Sampling must move neither the caller's evaluation time nor this
    // channel's local time: the calling segment's functions read the local
    // time again (the second call in "matchin() + matchout()" would see the
    // neighbour's key time otherwise).
    const double saved_time = myManager->getEvaluateTime(thread);
    const float saved_local = getLocalTime(thread);
    UT_ScopeExit restore([this, thread, saved_time, saved_local] {
        slot(thread).time = saved_local;
        myManager->setEvaluateTime(static_cast<float>(saved_time), thread);
    });
    auto sample = [&](float at) {
        setEvalTime(at, thread);
        return evaluateSegmentAt(s, at, false, thread);
    };
    value = sample(t);
    double exact;
    if (exactSlope(*s, t, getTolerance(), exact))
        slope = static_cast<float>(exact);
    else
    {
        float h = s->getLength() * 0.01f;
        if (h > 0.0f)
        {
            if (t - h >= s->getStart())
                slope = (value - sample(t - h)) / h;
            else
                slope = (sample(t + h) - value) / h;
        }
    }
}
