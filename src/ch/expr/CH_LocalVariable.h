#ifndef CH_LOCALVARIABLE_H
#define CH_LOCALVARIABLE_H

/// One entry of a variable table: the global variables of the manager
/// (F, T, FPS, ...) or the local variables of a collection (IV, LT, CH, ...).
/// Tables end with an entry whose name is null.
struct CH_LocalVariable
{
    enum : unsigned
    {
        TIME_DEP = 0x1,      ///< the value depends on time
        SEGMENT_VALUE = 0x2, ///< reads a key value of the evaluation segment
        SEGMENT_SLOPE = 0x4,
        SEGMENT_ACCEL = 0x8,
        INTEGER = 0x20,      ///< the value is an integer
        STRING = 0x1000,     ///< string valued
        DATA = 0x2000        ///< pointer valued (getVariableData)
    };

    const char *name;
    int id;
    unsigned flags;

    bool isTimeDependent() const { return flags & TIME_DEP; }
    bool isSegmentValue() const { return flags & SEGMENT_VALUE; }
    bool isSegmentSlope() const { return flags & SEGMENT_SLOPE; }
    bool isSegmentAccel() const { return flags & SEGMENT_ACCEL; }
};

#endif
