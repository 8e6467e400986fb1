#ifndef CH_VALUETYPES_H
#define CH_VALUETYPES_H

/// The three numbers a key carries on each side.
enum CH_ValueTypes
{
    CH_VALUE = 0, ///< the channel value at the key
    CH_SLOPE = 1, ///< value per unit time at the key
    CH_ACCEL = 2  ///< the tangent handle's length (or its ratio form)
};

constexpr int CH_NUM_VALUE_TYPES = 3;

/// Ignored by segment stretching and length changes; kept for callers
/// that say how they scale.
enum CH_SegmentScale
{
    CH_SCALE_ANY = 0,
    CH_SCALE_START = 1,
    CH_SCALE_END = 2
};

#endif
