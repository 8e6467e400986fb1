#include "CH_Spline.h"

#include <algorithm>
#include <iterator>

namespace {

// (v1 − v0) / (t1 − t0), or 0 when the times coincide (or run backwards).
float chDifference(float t0, float v0, float t1, float v1)
{
    float dt = t1 - t0;
    return dt > 0.0f ? (v1 - v0) / dt : 0.0f;
}

} // namespace

void CH_Spline::reset()
{
    myTimes.clear();
    myValues.clear();
    myTangents.clear();
}

void CH_Spline::addKnot(float t, float v)
{
    myTimes.push_back(t);
    myValues.push_back(v);
    myTangents.clear(); // stale until the next initialize()
}

void CH_Spline::initialize()
{
    std::size_t n = myTimes.size();
    myTangents.assign(n, 0.0f);
    if (n < 2)
        return;
    const std::vector<float> &t = myTimes, &v = myValues;
    for (std::size_t i = 1; i + 1 < n; ++i)
        myTangents[i] = (1.0f - myTension) * chDifference(t[i - 1], v[i - 1], t[i + 1], v[i + 1]);
    myTangents[0] = myUseSlopes ? myInSlope : chDifference(t[0], v[0], t[1], v[1]);
    myTangents[n - 1] = myUseSlopes ? myOutSlope : chDifference(t[n - 2], v[n - 2], t[n - 1], v[n - 1]);
}

float CH_Spline::evaluate(float t) const { return evaluate(t, -1); }

float CH_Spline::evaluate(float t, int hint) const
{
    if (myTimes.empty())
        return 0.0f;
    if (!(t > myTimes.front()))
        return myValues.front();
    if (!(t < myTimes.back()))
        return myValues.back();
    // The interval the search finds, t[i] <= t < t[i + 1] (so of positive
    // length): the hint when it is that interval.
    std::size_t i = static_cast<std::size_t>(hint);
    if (hint < 0 || i + 1 >= myTimes.size() || !(myTimes[i] <= t && t < myTimes[i + 1]))
        i = static_cast<std::size_t>(
            std::distance(myTimes.begin(), std::upper_bound(myTimes.begin(), myTimes.end(), t)) - 1);
    return hermite(i, t);
}

float CH_Spline::hermite(std::size_t i, float t) const
{
    // Without initialize() the tangents are taken as 0.
    float m0 = i + 1 < myTangents.size() ? myTangents[i] : 0.0f;
    float m1 = i + 1 < myTangents.size() ? myTangents[i + 1] : 0.0f;
    float h = myTimes[i + 1] - myTimes[i];
    float s = (t - myTimes[i]) / h;
    float s2 = s * s, s3 = s2 * s;
    float h00 = 2.0f * s3 - 3.0f * s2 + 1.0f;
    float h10 = s3 - 2.0f * s2 + s;
    float h01 = 3.0f * s2 - 2.0f * s3;
    float h11 = s3 - s2;
    return h00 * myValues[i] + h10 * h * m0 + h01 * myValues[i + 1] + h11 * h * m1;
}

CH_Spline &CH_Spline::forThisThread()
{
    static thread_local CH_Spline theSpline;
    return theSpline;
}
