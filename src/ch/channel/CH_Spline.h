#ifndef CH_SPLINE_H
#define CH_SPLINE_H

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
/// One object is not for concurrent use: the interpolation functions keep
/// one per thread (forThisThread()).
class CH_Spline
{
public:
    /// Forgets the knots (tension and end slopes stay).
    void reset();
    void addKnot(float t, float v);
    /// Computes the tangents; call after the last addKnot.
    void initialize();
    float evaluate(float t) const;

    void setSlopes(float in_slope, float out_slope) { myInSlope = in_slope; myOutSlope = out_slope; }
    void useSlopes(int on) { myUseSlopes = on != 0; }
    /// 0 (the default) gives centred-difference tangents; 1 flattens the
    /// inner ones.
    void setTension(float tension) { myTension = tension; }

    int getNKnots() const { return static_cast<int>(myTimes.size()); }

    /// The calling thread's own spline.
    static CH_Spline &forThisThread();

private:
    std::vector<float> myTimes;
    std::vector<float> myValues;
    std::vector<float> myTangents;
    float myInSlope = 0.0f;
    float myOutSlope = 0.0f;
    float myTension = 0.0f;
    bool myUseSlopes = false;
};

#endif
