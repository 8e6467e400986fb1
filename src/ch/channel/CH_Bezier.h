#ifndef CH_BEZIER_H
#define CH_BEZIER_H

class CH_Cubic;
class CH_Segment;
struct CH_SegmentValues;

/// A segment as a cubic Bezier curve in the (time, value) plane: four
/// control points, their times in myX and their values in myY. Points 0 and
/// 3 are the keys; 1 and 2 end the in and out handles.
///
/// The curve is parametric: time and value are both cubics of a parameter
/// u in [0, 1]. A time maps to u through the time cubic (see
/// timeToParametric), so the value at a time is well defined as long as the
/// time cubic rises over [0, 1], which holds whenever neither handle reaches
/// past the other key (init() guarantees that).
class CH_Bezier
{
public:
    /// All eight numbers 0.
    CH_Bezier();
    explicit CH_Bezier(const CH_SegmentValues &values);
    /// From the segment's numbers (its CH_SegmentValues).
    explicit CH_Bezier(const CH_Segment &segment);

    /// Places the keys at (start, in value) and (end, out value). Each handle
    /// leaves its key along its slope, |accel| long; one whose time extent
    /// would pass the other key is scaled down to end exactly at that key's
    /// time. A segment of zero or negative length gets handles without time
    /// extent.
    void init(const CH_SegmentValues &values);
    /// The inverse of init: keys, slopes (value extent / time extent of a
    /// handle) and accels (handle lengths). A handle without time extent has
    /// slope 0. For a handle that init scaled down, the accel is the shorter
    /// length.
    void getValues(CH_SegmentValues &values) const;

    /// The value at time t. Times before the curve give the in value, times
    /// after it the out value; a zero-length curve gives the in value at
    /// every time.
    float eval(float t) const;
    /// The value at parameter u (the Bernstein form of myY).
    float evalP(float u) const;
    /// The parameter at time t, in [0, 1]: the time cubic's reverseEvalP(t).
    /// The time cubic is built on times relative to x0 (and solved for
    /// t − x0), which is the same curve with less rounding.
    float timeToParametric(float t) const;

    /// De Casteljau subdivision at parameter u: left covers [0, u] and right
    /// [u, 1] of this curve, each with its own parameter running over [0, 1].
    /// Together they trace this curve. left or right may be this curve.
    void splitP(float u, CH_Bezier &left, CH_Bezier &right) const;
    /// splitP at timeToParametric(t). When t lies inside the curve the split
    /// point's time is set to t exactly, so a key made there lands on t.
    void split(float t, CH_Bezier &left, CH_Bezier &right) const;
    /// split at t, returned as the two segments' values: left ends and right
    /// starts at the split point; left's out and right's in slope and accel
    /// describe the new handles there, left's in and right's out ones the
    /// original outer handles, shortened by the split. Returns the split
    /// parameter. init() on the two reproduces the halves when their handles
    /// fit within them; long handles (one reaching near the other key) can
    /// leave a half whose handle passes its other end, which init() would
    /// shorten.
    float splitAndFindSlopeLengths(float t, CH_SegmentValues &left, CH_SegmentValues &right) const;

    /// Power form of the Bezier polynomial of four control values p:
    /// a = p0, b = 3p1 − 3p0, c = 3p2 − 6p1 + 3p0, d = p3 − 3p2 + 3p1 − p0.
    static void getCubicFromCVs(const float *four, CH_Cubic &cubic);
    /// De Casteljau on four control values at u: left[0..3] and right[0..3]
    /// receive the halves' control values (left[3] == right[0] is the curve
    /// at u). The output arrays may be the input.
    static void splitInternal(const float *four, float u, float *left, float *right);

    /// "time %f %f %f %f\tvalue %f %f %f %f\n" with x0..x3 and y0..y3 on
    /// standard output.
    void display() const;

    float myX[4];
    float myY[4];

private:
    float splitAtTime(float t, CH_Bezier &left, CH_Bezier &right) const;
};

#endif
