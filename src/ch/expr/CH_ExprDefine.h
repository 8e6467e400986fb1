#ifndef CH_EXPRDEFINE_H
#define CH_EXPRDEFINE_H

#include <ut/UT_String.h>

/// A named constant usable as a bare name in expressions ("define").
class CH_ExprDefine
{
public:
    CH_ExprDefine() = default;
    CH_ExprDefine(const char *name, float value) : myName(name), myValue(value) {}

    const char *getName() const { return myName; }
    float getValue() const { return myValue; }

private:
    UT_String myName;
    float myValue = 0.0f;
};

#endif
