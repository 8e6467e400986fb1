#include <ch/channel/CH_Bezier.h>

#include <ch/channel/CH_Cubic.h>
#include <ch/channel/CH_SegmentValues.h>

#include <cmath>
#include <cstdio>

namespace {

struct Handle
{
    float time;  // extent along the time axis, never negative
    float value; // extent along the value axis
    bool reachesKey; // scaled to end exactly at the other key
};

// A handle of length |accel| at angle atan(slope), kept within 'length'.
// cos(atan s) is taken on whichever side avoids squaring a large slope.
Handle handleFrom(float slope, float accel, float length)
{
    float a = std::fabs(accel);
    float cosine, sine;
    if (std::fabs(slope) <= 1.0f) {
        sine = slope / std::sqrt(slope * slope + 1.0f);
        cosine = std::sqrt(1.0f - sine * sine);
    } else {
        float inv = 1.0f / std::fabs(slope);
        float norm = std::sqrt(inv * inv + 1.0f);
        cosine = inv / norm;
        sine = std::copysign(1.0f / norm, slope);
    }
    Handle h{a * cosine, a * sine, false};
    if (h.time > length) {
        h.value *= length / h.time;
        h.time = length;
        h.reachesKey = true;
    }
    return h;
}

// The u in [0, 1] where a time cubic that rises from 0 at u = 0 to 'length'
// at u = 1 (a = 0 in power form) reaches tau. Halley steps (Newton's with
// the curvature, so the error cubes each step) from the straight-line
// guess, inside a bracket that shrinks around the root; a step that would
// leave the bracket, or that is not under half the step before last (as at
// a flat point, where every such method crawls), is a bisection instead.
// Works in double on the float coefficients, so the root is as exact as a
// float parameter can hold: it stops once a Halley step is tiny and far
// below the previous one (fast convergence, so the error left is about its
// cube), or when any step is below 1e-12.
float risingParameter(const CH_Cubic &cubic, float tau, float length)
{
    if (!(tau > 0.0f))
        return 0.0f;
    if (!(tau < length))
        return 1.0f;
    const double b = cubic.myB, c = cubic.myC, d = cubic.myD, v = tau;
    double lo = 0.0, hi = 1.0;
    double u = v / length;
    double step = 1.0, previous = 1.0;
    for (int i = 0; i < 100; ++i)
    {
        double f = ((d * u + c) * u + b) * u - v;
        if (f < 0.0)
            lo = u;
        else if (f > 0.0)
            hi = u;
        else
            break;
        double slope = (3.0 * d * u + 2.0 * c) * u + b;
        double bend = 6.0 * d * u + 2.0 * c;
        double halley = 2.0 * f * slope / (2.0 * slope * slope - f * bend);
        double before = previous;
        previous = step;
        double next = u - halley;
        if (!(next > lo && next < hi) || std::fabs(halley) > 0.5 * std::fabs(before))
        {
            step = 0.5 * (hi - lo);
            u = lo + step;
        }
        else
        {
            step = halley;
            u = next;
            if (std::fabs(step) < 1e-6 && std::fabs(step) < 1e-3 * std::fabs(previous))
                break;
        }
        if (std::fabs(step) < 1e-12)
            break;
    }
    return static_cast<float>(u);
}

void handleValues(float dt, float dv, float &slope, float &accel)
{
    slope = dt != 0.0f ? dv / dt : 0.0f;
    accel = std::hypot(dt, dv);
}

} // namespace

CH_Bezier::CH_Bezier() : myX{0.0f, 0.0f, 0.0f, 0.0f}, myY{0.0f, 0.0f, 0.0f, 0.0f} {}

CH_Bezier::CH_Bezier(const CH_SegmentValues &values) { init(values); }

CH_Bezier::CH_Bezier(const CH_Segment &segment) : CH_Bezier(CH_SegmentValues(segment)) {}

void CH_Bezier::init(const CH_SegmentValues &values)
{
    float start = values.myStart;
    float end = values.myEnd;
    float length = std::fmax(end - start, 0.0f);
    Handle in = handleFrom(values.myInSlope, values.myInAccel, length);
    Handle out = handleFrom(values.myOutSlope, values.myOutAccel, length);

    // start + length need not round to end: a handle that reaches the other
    // key takes that key's time.
    bool span = length > 0.0f;
    myX[0] = start;
    myX[1] = in.reachesKey && span ? end : start + in.time;
    myX[2] = out.reachesKey && span ? start : end - out.time;
    myX[3] = end;
    myY[0] = values.myInValue;
    myY[1] = values.myInValue + in.value;
    myY[2] = values.myOutValue - out.value;
    myY[3] = values.myOutValue;
}

void CH_Bezier::getValues(CH_SegmentValues &values) const
{
    values.myStart = myX[0];
    values.myEnd = myX[3];
    values.myInValue = myY[0];
    values.myOutValue = myY[3];
    handleValues(myX[1] - myX[0], myY[1] - myY[0], values.myInSlope, values.myInAccel);
    handleValues(myX[3] - myX[2], myY[3] - myY[2], values.myOutSlope, values.myOutAccel);
}

float CH_Bezier::eval(float t) const { return evalP(timeToParametric(t)); }

float CH_Bezier::evalP(float u) const
{
    float v = 1.0f - u;
    return v * v * v * myY[0] + 3.0f * u * v * v * myY[1] + 3.0f * u * u * v * myY[2] + u * u * u * myY[3];
}

float CH_Bezier::timeToParametric(float t) const
{
    // Times taken from the start key: the cubic's rounding then scales with
    // the segment's length, not with how far along the time line it sits
    // (which matters most where the time cubic is flat).
    float x0 = myX[0];
    const float local[4] = {0.0f, myX[1] - x0, myX[2] - x0, myX[3] - x0};
    CH_Cubic time;
    getCubicFromCVs(local, time);
    // Handles that stay within the keys (init's curves and their splits)
    // make time rise over the curve: one root, which a bracketed Newton
    // search finds at a fraction of a general cubic solve's cost.
    float length = local[3];
    if (length > 0.0f && local[1] >= 0.0f && local[1] <= length && local[2] >= 0.0f && local[2] <= length)
        return risingParameter(time, t - x0, length);
    return time.reverseEvalP(t - x0);
}

void CH_Bezier::splitP(float u, CH_Bezier &left, CH_Bezier &right) const
{
    splitInternal(myX, u, left.myX, right.myX);
    splitInternal(myY, u, left.myY, right.myY);
}

void CH_Bezier::split(float t, CH_Bezier &left, CH_Bezier &right) const
{
    splitAtTime(t, left, right);
}

float CH_Bezier::splitAndFindSlopeLengths(float t, CH_SegmentValues &left, CH_SegmentValues &right) const
{
    CH_Bezier l, r;
    float u = splitAtTime(t, l, r);
    l.getValues(left);
    r.getValues(right);
    return u;
}

float CH_Bezier::splitAtTime(float t, CH_Bezier &left, CH_Bezier &right) const
{
    float start = myX[0];
    float end = myX[3];
    float u = timeToParametric(t);
    splitP(u, left, right);
    if (start < t && t < end)
        left.myX[3] = right.myX[0] = t;
    return u;
}

void CH_Bezier::getCubicFromCVs(const float *p, CH_Cubic &cubic)
{
    cubic.set(p[0], 3.0f * p[1] - 3.0f * p[0], 3.0f * p[2] - 6.0f * p[1] + 3.0f * p[0],
              p[3] - 3.0f * p[2] + 3.0f * p[1] - p[0]);
}

void CH_Bezier::splitInternal(const float *four, float u, float *left, float *right)
{
    // (1 − u)·a + u·b rather than a + u·(b − a): exact at u = 0 and u = 1.
    float v = 1.0f - u;
    float p0 = four[0], p1 = four[1], p2 = four[2], p3 = four[3];
    float p01 = v * p0 + u * p1;
    float p12 = v * p1 + u * p2;
    float p23 = v * p2 + u * p3;
    float p012 = v * p01 + u * p12;
    float p123 = v * p12 + u * p23;
    float mid = v * p012 + u * p123;
    left[0] = p0;
    left[1] = p01;
    left[2] = p012;
    left[3] = mid;
    right[0] = mid;
    right[1] = p123;
    right[2] = p23;
    right[3] = p3;
}

void CH_Bezier::display() const
{
    std::printf("time %f %f %f %f\tvalue %f %f %f %f\n", myX[0], myX[1], myX[2], myX[3], myY[0], myY[1],
                myY[2], myY[3]);
}
