#ifndef CH_CUBIC_H
#define CH_CUBIC_H

/// A cubic in one parameter u: value(u) = a + b·u + c·u² + d·u³, with
/// single-precision coefficients.
///
/// On its own a cubic has no separate time axis: its parameter is the time,
/// so timeToParametric(t) is t and eval(t) is evalP(t). Curves that do have
/// one (CH_Bezier) keep a second cubic for time and map a time to the
/// parameter with that cubic's reverseEvalP.
class CH_Cubic
{
public:
    constexpr CH_Cubic() noexcept : myA(0.0f), myB(0.0f), myC(0.0f), myD(0.0f) {}
    constexpr CH_Cubic(float a, float b, float c, float d) noexcept : myA(a), myB(b), myC(c), myD(d) {}

    void set(float a, float b, float c, float d) noexcept { myA = a; myB = b; myC = c; myD = d; }

    float eval(float t) const noexcept { return evalP(timeToParametric(t)); }
    float timeToParametric(float t) const noexcept { return t; }

    /// The polynomial at parameter u (any u, not only [0, 1]).
    float evalP(float u) const noexcept { return ((myD * u + myC) * u + myB) * u + myA; }
    /// First derivative in u: b + 2c·u + 3d·u².
    float calculateSlopeP(float u) const noexcept { return (3.0f * myD * u + 2.0f * myC) * u + myB; }
    /// Second derivative in u: 2c + 6d·u.
    float calculateAccelP(float u) const noexcept { return 6.0f * myD * u + 2.0f * myC; }

    /// The parameter in [0, 1] at which the cubic takes the value v: the
    /// first root of d·u³ + c·u² + b·u + (a − v) = 0 in [0, 1], in the
    /// ascending order of UT_RootFinder::cubic, so the smallest such root.
    /// When no root lies in [0, 1]: 0 if some root is below 0 or there is
    /// no root at all, otherwise (all roots above 1) 1.
    float reverseEvalP(float v) const;

    /// "%f + %fx + %fx^2 + %fx^3\n" with a, b, c, d on standard output.
    void display() const;

    float myA;
    float myB;
    float myC;
    float myD;
};

#endif
