#include <ut/UT_RootFinder.h>

#include <algorithm>
#include <cmath>

namespace {

// A leading coefficient this small against the largest other one counts as
// zero (relative, so a uniformly small polynomial keeps its degree).
constexpr double kDegenerate = 1e-6;
// A sum that cancels to this fraction of its terms' sizes is taken as zero:
// double rounding of terms that should cancel exactly (a double or triple
// root) would otherwise decide the number of roots.
constexpr double kCancel = 1e-12;
// Relative size of the changes float rounding of the coefficients can make
// to the cubic's discriminant, with a margin (see solveMonicCubic).
constexpr double kFloatNoise = 1e-6;
constexpr int kPolishSteps = 8;
constexpr double kPi = 3.14159265358979323846;

struct Poly
{
    double c3, c2, c1, c0;
    double value(double x) const { return ((c3 * x + c2) * x + c1) * x + c0; }
    double slope(double x) const { return (3.0 * c3 * x + 2.0 * c2) * x + c1; }
};

// Newton steps on the full polynomial. A step is kept only when it lowers
// |f|: next to a multiple root f' is tiny and a plain step could fly off.
double polish(const Poly &p, double x)
{
    double fx = p.value(x);
    for (int i = 0; i < kPolishSteps && fx != 0.0; ++i) {
        double dfx = p.slope(x);
        if (dfx == 0.0)
            break;
        double nx = x - fx / dfx;
        double nf = p.value(nx);
        if (!(std::fabs(nf) < std::fabs(fx)))
            break;
        x = nx;
        fx = nf;
    }
    return x;
}

int solveLinear(double c1, double c0, double *r)
{
    if (c1 == 0.0)
        return 0;
    r[0] = -c0 / c1;
    return 1;
}

int solveQuadratic(double c2, double c1, double c0, double *r)
{
    if (std::fabs(c2) <= kDegenerate * std::max(std::fabs(c1), std::fabs(c0)))
        return solveLinear(c1, c0, r);
    double disc = c1 * c1 - 4.0 * c2 * c0;
    double scale = c1 * c1 + std::fabs(4.0 * c2 * c0);
    // As for the cubic: a negative disc within float rounding of the
    // coefficients keeps its double root.
    if (std::fabs(disc) <= kCancel * scale || (disc < 0.0 && -disc <= kFloatNoise * scale)) {
        r[0] = -c1 / (2.0 * c2);
        return 1;
    }
    if (disc < 0.0)
        return 0;
    // The root pair from q avoids subtracting nearly equal numbers.
    double q = -0.5 * (c1 + std::copysign(std::sqrt(disc), c1));
    r[0] = q / c2;
    r[1] = c0 / q;
    return 2;
}

// Monic cubic x³ + p·x² + q·x + r through the depressed form y³ + P·y + Q
// with x = y − p/3.
int solveMonicCubic(double p, double q, double r, double *roots)
{
    double shift = p / 3.0;
    double P = q - p * p / 3.0;
    double Q = 2.0 * p * p * p / 27.0 - p * q / 3.0 + r;
    double scaleP = std::fabs(q) + p * p / 3.0;
    double scaleQ = 2.0 * std::fabs(p * p * p) / 27.0 + std::fabs(p * q) / 3.0 + std::fabs(r);
    if (std::fabs(P) <= kCancel * scaleP)
        P = 0.0;
    if (std::fabs(Q) <= kCancel * scaleQ)
        Q = 0.0;
    double halfQ = Q / 2.0;
    double thirdP = P / 3.0;
    double cubeP = thirdP * thirdP * thirdP;
    double disc = halfQ * halfQ + cubeP;
    if (std::fabs(disc) <= kCancel * (halfQ * halfQ + std::fabs(cubeP)))
        disc = 0.0;
    // Float rounding of the coefficients moves P and Q by up to about 2^-23
    // of their scales, and disc by the matching amount; a positive disc within
    // that may stand for a double root pushed off the real axis, which is
    // kept as one.
    if (disc > 0.0 && disc <= kFloatNoise * (std::fabs(halfQ) * scaleQ + thirdP * thirdP * scaleP))
        disc = 0.0;

    if (disc > 0.0) {
        // One real root. w is the cube root without cancellation; its
        // partner is −P/(3w).
        double w = std::cbrt(-halfQ - std::copysign(std::sqrt(disc), halfQ));
        roots[0] = w - thirdP / w - shift;
        return 1;
    }
    if (disc == 0.0) {
        if (halfQ == 0.0) {
            roots[0] = -shift; // triple root
            return 1;
        }
        // (y − 2w)(y + w)² = y³ − 3w²·y − 2w³
        double w = std::cbrt(-halfQ);
        roots[0] = 2.0 * w - shift;
        roots[1] = -w - shift;
        return 2;
    }
    // Three real roots: y = 2ρ·cos φ turns the equation into cos 3φ = −Q/(2ρ³).
    double rho = std::sqrt(-thirdP);
    double c = std::clamp(-halfQ / (rho * rho * rho), -1.0, 1.0);
    double phi = std::acos(c) / 3.0;
    const double third = 2.0 * kPi / 3.0;
    for (int k = 0; k < 3; ++k)
        roots[k] = 2.0 * rho * std::cos(phi - k * third) - shift;
    return 3;
}

} // namespace

int UT_RootFinder::cubic(float c3, float c2, float c1, float c0, float roots[3])
{
    if (!std::isfinite(c3) || !std::isfinite(c2) || !std::isfinite(c1) || !std::isfinite(c0))
        return 0;
    const Poly p{c3, c2, c1, c0};
    double found[3];
    int n;
    if (std::fabs(p.c3) <= kDegenerate * std::max({std::fabs(p.c2), std::fabs(p.c1), std::fabs(p.c0)}))
        n = solveQuadratic(p.c2, p.c1, p.c0, found);
    else
        n = solveMonicCubic(p.c2 / p.c3, p.c1 / p.c3, p.c0 / p.c3, found);

    for (int i = 0; i < n; ++i)
        found[i] = polish(p, found[i]);
    std::sort(found, found + n);
    int count = 0;
    for (int i = 0; i < n; ++i) {
        float root = static_cast<float>(found[i]);
        // A nearly flat linear equation can put its root beyond float range.
        if (!std::isfinite(root))
            continue;
        if (count == 0 || root != roots[count - 1])
            roots[count++] = root;
    }
    return count;
}
