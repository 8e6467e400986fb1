#ifndef CH_REVERSIBLEKEY_H
#define CH_REVERSIBLEKEY_H

#include <ch/channel/CH_FullKey.h>

/// A full key that also carries the expression of the segment ending at
/// it, so that the key can be mirrored in time.
class CH_ReversibleKey : public CH_FullKey
{
public:
    CH_ReversibleKey() = default;

    /// Also swaps the two expressions.
    void reverse();
    void stretch(float time_scale, float value_scale, bool accel_ratios);
    void display() const;

    bool myHasReverseExpression = false;
    UT_String myReverseExpression;
    CH_ExprLanguage myReverseLanguage = static_cast<CH_ExprLanguage>(0);
};

#endif
