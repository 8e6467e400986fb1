#ifndef CH_SPLINE_H
#define CH_SPLINE_H

#include <atomic>
#include <vector>

/// A cubic Hermite spline through knots (time, value), parameterised by
/// time. The tangent at an inner knot is the centred difference of its
/// neighbours scaled by (1 − tension); at the two end knots it is the
/// one-sided difference, or the slopes given to setSlopes() when
/// useSlopes(1) is on. The curve passes through every knot and its first
/// derivative is continuous across them.
///
/// Knots are added in time order. Equal times are allowed: a zero time
/// difference gives a zero tangent instead of a division by zero. Before
/// the first knot and after the last the end values hold; one knot gives
/// its value everywhere, none gives 0.
///
/// One object is not for concurrent use while its knots change; once
/// initialized, evaluate() may run on several threads at once.
class CH_Spline
{
public:
    /// Forgets the knots (tension and end slopes stay).
    void reset();
    void addKnot(float t, float v);
    /// Computes the tangents; call after the last addKnot.
    void initialize();
    float evaluate(float t) const;
    /// The same value, trying knot interval `hint` (from knot hint to
    /// hint + 1) before searching: a caller that knows where t lies skips
    /// the search. Any hint is safe.
    float evaluate(float t, int hint) const;

    void setSlopes(float in_slope, float out_slope) { myInSlope = in_slope; myOutSlope = out_slope; }
    void useSlopes(int on) { myUseSlopes = on != 0; }
    /// 0 (the default) gives centred-difference tangents; 1 flattens the
    /// inner ones.
    void setTension(float tension) { myTension = tension; }

    int getNKnots() const { return static_cast<int>(myTimes.size()); }

    /// The calling thread's own spline.
    static CH_Spline &forThisThread();

private:
    float hermite(std::size_t i, float t) const;

    std::vector<float> myTimes;
    std::vector<float> myValues;
    std::vector<float> myTangents;
    float myInSlope = 0.0f;
    float myOutSlope = 0.0f;
    float myTension = 0.0f;
    bool myUseSlopes = false;
};

/// The spline of one run of "spline()" segments, built once and then only
/// read. Every segment of the run holds a reference (CH_Segment's spline run
/// cache), so an evaluation anywhere on the run finds it without gathering
/// the knots again. Created with one reference, its builder's.
class CH_SplineRun : public CH_Spline
{
public:
    void retain() const { myRefs.fetch_add(1, std::memory_order_relaxed); }
    /// Deletes the run with its last reference.
    void release() const
    {
        if (myRefs.fetch_sub(1, std::memory_order_acq_rel) == 1)
            delete this;
    }

private:
    mutable std::atomic<int> myRefs{1};
};

#endif
