#ifndef CH_KEY_H
#define CH_KEY_H

#include <ch/channel/CH_ValueTypes.h>

#include <cstdint>
#include <ostream>

class CH_Segment;

/// One side of a key: value, slope and accel, each with a valid and a
/// tied flag, indexed by CH_ValueTypes.
struct CH_HalfKey
{
    float myV[CH_NUM_VALUE_TYPES];
    bool myValid[CH_NUM_VALUE_TYPES];
    bool myTied[CH_NUM_VALUE_TYPES];
};

/// A key read from (or written to) the two segments around it: the in half
/// is the left segment's end, the out half the right segment's start.
class CH_Key
{
public:
    CH_Key() { clear(); }

    /// All values 0, nothing valid or tied; the time stays.
    void clear();
    /// Sets that value on both sides, valid.
    void set(CH_ValueTypes type, float value);
    bool isSet(CH_ValueTypes type) const { return myIn.myValid[type] || myOut.myValid[type]; }
    /// Ties the type; values (not accels) valid on both sides are unified:
    /// direction -1 keeps the in value, +1 the out value, 0 their mean.
    void tie(int direction, CH_ValueTypes type);
    /// Value and slope as above; the accel only marked tied.
    void tie(int direction);
    /// Copies a type valid on one side only to the other side.
    void complete();

    void get(CH_Segment *left, CH_Segment *right, bool accel_ratios);
    void put(CH_Segment *left, CH_Segment *right, bool accel_ratios) const;

    /// Swaps the halves and negates both slopes.
    void reverse();
    void stretch(float time_scale, float value_scale, bool accel_ratios);
    void changeAccelsToRatios(float in_length, float out_length);

    void display() const;
    /// The key as command options: " -f 1 -v 0 -V 0 ...".
    void opscript(std::ostream &os, bool use_time, bool compact) const;

    float myTime = 0.0f;
    std::uint32_t myWord = 0; ///< cleared by get(); free for callers
    CH_HalfKey myIn;
    CH_HalfKey myOut;

protected:
    void swapHalves();
};

/// Scales a slope and its handle length by a time and a value scale, in
/// double precision; steep results saturate at +-1e8.
void CHstretchSlopeAccel(float time_scale, float value_scale, float &slope, float &accel,
                         bool accel_ratio);

#endif
