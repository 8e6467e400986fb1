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
        CONSTANT = 0x1,
        BEZIER = 0x2,
        LINEAR = 0x4,
        CUBIC = 0x8,
        EASE = 0x10,
        EASEIN = 0x20,
        EASEOUT = 0x40,
        LOCKED_SEGMENT = 0x80,
        SPLINE = 0x100,
        MODIFIED = 0x200,
        OUT_ACCEL_TIED = 0x400,
        IN_ACCEL_TIED = 0x800,
        OUT_SLOPE_TIED = 0x1000,
        IN_SLOPE_TIED = 0x2000,
        OUT_VALUE_TIED = 0x4000,
        IN_VALUE_TIED = 0x8000,
        END_LOCKED = 0x10000,
        START_LOCKED = 0x20000,
        LENGTH_LOCKED = 0x40000,
        COOKING = 0x80000,
        QLINEAR = 0x100000,
        QCUBIC = 0x200000,

        FUNCTION_BITS = 0x1ff | QLINEAR | QCUBIC,
        TIE_BITS = 0xfc00,
        LOCK_BITS = 0x70000
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
