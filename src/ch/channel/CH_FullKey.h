#ifndef CH_FULLKEY_H
#define CH_FULLKEY_H

#include <ch/channel/CH_Key.h>
#include <ch/expr/CH_ExprLanguage.h>

#include <ut/UT_String.h>

/// A key with the expression of the segment that starts at it.
class CH_FullKey : public CH_Key
{
public:
    CH_FullKey() = default;

    /// "Expression: %s (language: %s)\n" first when it has one.
    void display() const;

    bool myHasExpression = false;
    UT_String myExpression;
    CH_ExprLanguage myLanguage = static_cast<CH_ExprLanguage>(0);
};

#endif
