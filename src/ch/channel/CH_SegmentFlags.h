#ifndef CH_SEGMENTFLAGS_H
#define CH_SEGMENTFLAGS_H

/// One word of segment state: what the expression text is (bits 0-8, 20,
/// 21), modified (9), the six ties (10-15), the three locks (16-18) and
/// cooking (19).
class CH_SegmentFlags
{
public:
    enum : unsigned
    {
        CONSTANT = 1u << 0,
        BEZIER = 1u << 1,
        LINEAR = 1u << 2,
        CUBIC = 1u << 3,
        EASE = 1u << 4,
        EASEIN = 1u << 5,
        EASEOUT = 1u << 6,
        LOCKED_SEGMENT = 1u << 7,
        SPLINE = 1u << 8,
        MODIFIED = 1u << 9,
        OUT_ACCEL_TIED = 1u << 10,
        IN_ACCEL_TIED = 1u << 11,
        OUT_SLOPE_TIED = 1u << 12,
        IN_SLOPE_TIED = 1u << 13,
        OUT_VALUE_TIED = 1u << 14,
        IN_VALUE_TIED = 1u << 15,
        END_LOCKED = 1u << 16,
        START_LOCKED = 1u << 17,
        LENGTH_LOCKED = 1u << 18,
        COOKING = 1u << 19,
        QLINEAR = 1u << 20,
        QCUBIC = 1u << 21,

        FUNCTION_BITS = 0x1ff | QLINEAR | QCUBIC,
        TIE_BITS = OUT_ACCEL_TIED | IN_ACCEL_TIED | OUT_SLOPE_TIED | IN_SLOPE_TIED | OUT_VALUE_TIED | IN_VALUE_TIED,
        LOCK_BITS = END_LOCKED | START_LOCKED | LENGTH_LOCKED
    };

    CH_SegmentFlags() { setDefaults(); }
    CH_SegmentFlags(const CH_SegmentFlags &) = default;
    CH_SegmentFlags &operator=(const CH_SegmentFlags &) = default;
    CH_SegmentFlags &operator=(unsigned int word)
    {
        myWord = word;
        return *this;
    }
    operator unsigned int() const { return myWord; }

    /// All six ties on; no locks, no function bits, not modified or cooking.
    void setDefaults() { myWord = (myWord & ~(0x3ffu | 0x3f0000u)) | TIE_BITS; }
    bool isDefault() const { return !(myWord & LOCK_BITS) && (myWord & TIE_BITS) == TIE_BITS; }

    /// The locks and ties packed into ten bits (bit 0 unused): length,
    /// start and end locked in bits 1-3, then in/out value, in/out slope
    /// and in/out accel tied in bits 4-9.
    unsigned getFlag() const
    {
        unsigned compact = 0;
        for (int i = 1; i < 10; ++i)
            if (myWord & (1u << (19 - i)))
                compact |= 1u << i;
        return compact;
    }
    /// Unpacks getFlag()'s form; the other bits of the word stay.
    void parseFlag(unsigned compact)
    {
        for (int i = 1; i < 10; ++i)
        {
            unsigned bit = 1u << (19 - i);
            myWord = (compact & (1u << i)) ? (myWord | bit) : (myWord & ~bit);
        }
    }

    bool has(unsigned bits) const { return (myWord & bits) != 0; }
    void set(unsigned bits, bool on) { myWord = on ? (myWord | bits) : (myWord & ~bits); }

private:
    unsigned myWord = 0;
};

#endif
