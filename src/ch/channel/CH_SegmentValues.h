#ifndef CH_SEGMENTVALUES_H
#define CH_SEGMENTVALUES_H

class CH_Segment;

/// The eight numbers that shape a segment, as one plain record: the curve
/// classes and key editing work on these instead of on the segment itself.
struct CH_SegmentValues
{
    /// Leaves the eight numbers unset, like any plain record.
    CH_SegmentValues() = default;
    /// Copies the segment's eight numbers (defined with the segment).
    explicit CH_SegmentValues(const CH_Segment &segment);
    CH_SegmentValues(float start, float end, float in_value, float out_value, float in_slope,
                     float out_slope, float in_accel, float out_accel)
        : myStart(start), myEnd(end), myInValue(in_value), myOutValue(out_value),
          myInSlope(in_slope), myOutSlope(out_slope), myInAccel(in_accel), myOutAccel(out_accel)
    {
    }

    /// "time %f %f\tvalue %f %f\tslope %f %f\tsl %f %f\n" on standard output.
    void display() const;

    float myStart;
    float myEnd;
    float myInValue;
    float myOutValue;
    float myInSlope;
    float myOutSlope;
    float myInAccel;
    float myOutAccel;
};

#endif
