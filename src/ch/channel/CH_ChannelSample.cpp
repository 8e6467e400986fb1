// A segment's value and slope at a time, for the match functions.
#include <ch/channel/CH_Channel.h>

#include <ch/channel/CH_Bezier.h>
#include <ch/channel/CH_SegmentValues.h>
#include <ch/manager/CH_Manager.h>

#include <cmath>
#include <cstring>

namespace {

enum class chShape
{
    Other,
    Constant,
    Linear,
    Cubic,
    Quintic,
    Bezier,
    Ease,
    EaseIn,
    EaseOut
};

chShape shapeOf(const CH_Segment &s)
{
    static const struct
    {
        const char *text;
        chShape shape;
    } theShapes[] = {{"constant()", chShape::Constant}, {"linear()", chShape::Linear},
                     {"cubic()", chShape::Cubic},       {"quintic()", chShape::Quintic},
                     {"bezier()", chShape::Bezier},     {"ease()", chShape::Ease},
                     {"easein()", chShape::EaseIn},     {"easeout()", chShape::EaseOut}};
    const char *text = s.getExpression();
    if (!text)
        return chShape::Other;
    for (const auto &entry : theShapes)
        if (!std::strcmp(text, entry.text))
            return entry.shape;
    return chShape::Other;
}

// d(value)/d(time) of the segment's function at local time t, the parameter
// clamped into the segment (one-sided at its keys). False when there is no
// exact form for it.
bool exactSlope(const CH_Segment &s, chShape shape, float t, float tol, double &slope)
{
    double length = s.getLength();
    if (shape == chShape::Other)
        return false;
    if (shape == chShape::Constant || std::fabs(length) < 1e-5)
    {
        slope = 0.0;
        return true;
    }
    // At a key (within the tolerance, as the time may have gone through the
    // channel's start and back) the key's own parameter.
    double u = (t - s.getStart()) / length;
    u = u < 0.0 || t - s.getStart() <= tol ? 0.0 : (u > 1.0 || s.getEnd() - t <= tol ? 1.0 : u);
    double in = s.getInValue(), out = s.getOutValue();
    double si = s.getInSlope(), so = s.getOutSlope();
    const double pi = 3.14159265358979323846;
    switch (shape)
    {
    case chShape::Linear: slope = (out - in) / length; return true;
    case chShape::Ease: slope = (out - in) * 0.5 * pi * std::sin(pi * u) / length; return true;
    case chShape::EaseIn: slope = (out - in) * 0.5 * pi * std::sin(0.5 * pi * u) / length; return true;
    case chShape::EaseOut: slope = (out - in) * 0.5 * pi * std::cos(0.5 * pi * u) / length; return true;
    case chShape::Cubic:
    {
        double a = length * si, b = (si + so) * length + 2.0 * (in - out);
        slope = (a + 2.0 * (out - in - a - b) * u + 3.0 * b * u * u) / length;
        return true;
    }
    case chShape::Quintic:
    {
        double ai = s.getInAccel(), ao = s.getOutAccel();
        double A = si * length, C = 0.5 * ai * length, D = out - in - A - C;
        double E = so * length - A - ai * length, F = ao * length - ai * length;
        double c5 = 0.5 * (F - 6.0 * E + 12.0 * D), c4 = 0.25 * (F - 2.0 * E - 10.0 * c5);
        double c3 = D - c4 - c5;
        slope = (A + u * (2.0 * C + u * (3.0 * c3 + u * (4.0 * c4 + u * 5.0 * c5)))) / length;
        return true;
    }
    case chShape::Bezier:
    {
        CH_Bezier curve{CH_SegmentValues(s)};
        // Solving the time cubic at a key can land on the wrong root (the
        // one at the key rounds past [0, 1]): the other end's handle.
        double w = u == 0.0 || u == 1.0 ? u : curve.timeToParametric(t);
        auto derivative = [w](const float *p) {
            double v = 1.0 - w;
            return 3.0 * (v * v * (p[1] - p[0]) + 2.0 * v * w * (p[2] - p[1]) + w * w * (p[3] - p[2]));
        };
        double dx = derivative(curve.myX), dy = derivative(curve.myY);
        if (std::fabs(dx) <= 1e-9 * length)
            return false; // a handle without time extent: no usable tangent here
        slope = dy / dx;
        return true;
    }
    default: return false;
    }
}

} // namespace

void CH_Channel::sampleValueSlope(CH_Segment *s, float global_time, int thread, float &value,
                                  float &slope)
{
    value = slope = 0.0f;
    if (!s || !myManager)
        return;
    float t = global_time - myStart;
    // Sampling must move neither the caller's evaluation time nor this
    // channel's local time: the calling segment's functions read the local
    // time again (the second call in "matchin() + matchout()" would see the
    // neighbour's key time otherwise).
    double saved_time = myManager->getEvaluateTime(thread);
    float saved_local = getLocalTime(thread);
    auto sample = [&](float at) {
        setEvalTime(at, thread);
        return evaluateSegment(s, at, false, thread);
    };
    value = sample(t);
    double exact;
    if (exactSlope(*s, shapeOf(*s), t, getTolerance(), exact))
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
    slot(thread).time = saved_local;
    myManager->setEvaluateTime(static_cast<float>(saved_time), thread);
}
