#include <ch/channel/CH_Cubic.h>

#include <ut/UT_RootFinder.h>

#include <cstdio>

float CH_Cubic::reverseEvalP(float v) const
{
    float roots[3];
    int n = UT_RootFinder::cubic(myD, myC, myB, myA - v, roots);
    for (int i = 0; i < n; ++i) {
        if (roots[i] >= 0.0f && roots[i] <= 1.0f)
            return roots[i];
    }
    // Roots come in ascending order: one below 0 is the first.
    if (n == 0 || roots[0] < 0.0f)
        return 0.0f;
    return 1.0f;
}

void CH_Cubic::display() const
{
    std::printf("%f + %fx + %fx^2 + %fx^3\n", myA, myB, myC, myD);
}
