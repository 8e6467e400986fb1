// The float functions of the standard library.

#include "evLibrary.h"

#include <ev/EV_Engine.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <utility>

namespace {

constexpr double thePi = 3.14159265358979323846;
constexpr double theDegToRad = thePi / 180.0;
constexpr double theRadToDeg = 180.0 / thePi;

double evArg(EV_SYMBOL **argv, int i) { return argv[i]->getFloat(); }

void evBadArg(EV_SYMBOL *result, int thread)
{
    ev_RaiseError(EV_ERRBADARG, thread);
    result->setFloat(0.0);
}

// ---- Degree trigonometry ---------------------------------------------------
//
// Reducing in degrees, where multiples of 90 are exact, makes sin(180),
// cos(90) and the like exactly 0 instead of a rounding residue of pi.

// Angles that are whole multiples of 90 degrees give exact results (sin(180)
// is 0, not a rounding residue of pi). The split deg = q * 90 + rem is exact:
// q * 90 is exact for |q| < 2^46, and a difference of two doubles smaller
// than both lies on their common grid. The remainder, within about
// [-45, 45] degrees, goes through short polynomial kernels (the classic
// minimax fits on [-pi/4, pi/4], accurate to about an ulp of a double); the
// quarter picks the kernel and the sign. Animated angles change quarter
// rarely, so the choice predicts well.
struct evQuarter
{
    double rem;  // degrees, about [-45, 45]
    int quarter; // whole quarter turns, mod 4
};

inline evQuarter evReduce(double deg)
{
    double r = std::fabs(deg) < 1e15 ? deg : std::fmod(deg, 360.0);
    // Round to an integer without a library call: adding 1.5 * 2^52 pushes
    // the fraction out of the mantissa (|r / 90| is far below 2^51 here).
    constexpr double theRound = 6755399441055744.0;
    double q = (r * (1.0 / 90.0) + theRound) - theRound;
    return {r - q * 90.0, static_cast<int>(static_cast<long long>(q) & 3)};
}

inline double evKernelSin(double x)
{
    const double z = x * x;
    const double r = 8.33333333332248946124e-03 +
                     z * (-1.98412698298579493134e-04 +
                          z * (2.75573137070700676789e-06 +
                               z * (-2.50507602534068634195e-08 + z * 1.58969099521155010221e-10)));
    return x + z * x * (-1.66666666666666324348e-01 + z * r);
}

inline double evKernelCos(double x)
{
    const double z = x * x;
    const double r = z * (4.16666666666666019037e-02 +
                          z * (-1.38888888888741095749e-03 +
                               z * (2.48015872894767294178e-05 +
                                    z * (-2.75573143513906633035e-07 +
                                         z * (2.08757232129817482790e-09 +
                                              z * -1.13596475577881948265e-11)))));
    const double hz = 0.5 * z;
    const double w = 1.0 - hz;
    return w + (((1.0 - w) - hz) + z * r);
}

// sin of quarter * 90 + rem degrees; 'shift' 1 gives the cosine.
inline double evSinCosDeg(double deg, int shift)
{
    if (!std::isfinite(deg))
        return std::sin(deg); // NaN
    evQuarter e = evReduce(deg);
    const int quarter = (e.quarter + shift) & 3;
    static const double theExact[4] = {0.0, 1.0, 0.0, -1.0};
    if (e.rem == 0.0)
        return theExact[quarter];
    const double x = e.rem * theDegToRad;
    const double value = (quarter & 1) ? evKernelCos(x) : evKernelSin(x);
    // Adding +0 turns a -0 into 0, so a result never prints as "-0".
    return ((quarter & 2) ? -value : value) + 0.0;
}

double evSinDeg(double deg) { return evSinCosDeg(deg, 0); }
double evCosDeg(double deg) { return evSinCosDeg(deg, 1); }

// ---- Mapping helpers -------------------------------------------------------

// Clamped to the interval between the bounds, whichever order they are in.
double evClamp(double v, double lo, double hi)
{
    if (lo > hi)
        std::swap(lo, hi);
    return v < lo ? lo : (v > hi ? hi : v);
}

// Exact at both ends of the new range; a NaN input maps to nmin.
double evFit(double v, double omin, double omax, double nmin, double nmax)
{
    if (omin == omax)
        return nmin;
    double t = (v - omin) / (omax - omin);
    if (!(t > 0.0))
        return nmin;
    if (t >= 1.0)
        return nmax;
    return nmin + (nmax - nmin) * t;
}

// A deterministic hash of the value's IEEE bits (splitmix64's mixer). Both
// zeros and all NaNs hash alike. 24 bits of result keep it exactly
// representable as a float, so it stays below 1 when stored as one.
double evRandom(double seed)
{
    if (seed == 0.0)
        seed = 0.0;
    else if (std::isnan(seed))
        seed = std::numeric_limits<double>::quiet_NaN();
    std::uint64_t x;
    static_assert(sizeof(x) == sizeof(seed), "double must be 64 bits");
    std::memcpy(&x, &seed, sizeof(x));
    x += 0x9e3779b97f4a7c15ULL;
    x = (x ^ (x >> 30)) * 0xbf58476d1ce4e5b9ULL;
    x = (x ^ (x >> 27)) * 0x94d049bb133111ebULL;
    x ^= x >> 31;
    return static_cast<double>(x >> 40) * (1.0 / 16777216.0);
}

// ---- Callbacks -------------------------------------------------------------

// Each defines the callback NAME and the plain function NAME##Direct that
// the engine may call in its place.
#define EV_FLOAT1(NAME, EXPR)                                                   \
    double NAME##Direct(double x) { return EXPR; }                              \
    void NAME(EV_FUNCTION *, EV_SYMBOL *result, EV_SYMBOL **argv, int)          \
    {                                                                           \
        result->setFloat(NAME##Direct(evArg(argv, 0)));                         \
    }

EV_FLOAT1(evAbs, std::fabs(x))
EV_FLOAT1(evSign, x > 0.0 ? 1.0 : (x < 0.0 ? -1.0 : 0.0))
EV_FLOAT1(evFloor, std::floor(x))
EV_FLOAT1(evCeil, std::ceil(x))
EV_FLOAT1(evInt, std::trunc(x))
EV_FLOAT1(evFrac, x - std::floor(x))
EV_FLOAT1(evRound, std::round(x))
EV_FLOAT1(evExp, std::exp(x))
EV_FLOAT1(evSin, evSinDeg(x))
EV_FLOAT1(evCos, evCosDeg(x))
EV_FLOAT1(evAtan, std::atan(x) * theRadToDeg)
EV_FLOAT1(evSinh, std::sinh(x))
EV_FLOAT1(evCosh, std::cosh(x))
EV_FLOAT1(evTanh, std::tanh(x))
EV_FLOAT1(evDeg, x * theRadToDeg)
EV_FLOAT1(evRad, x * theDegToRad)
EV_FLOAT1(evRand, evRandom(x))

#undef EV_FLOAT1

// The domain tests are written so that NaN fails them too.
void evSqrt(EV_FUNCTION *, EV_SYMBOL *result, EV_SYMBOL **argv, int thread)
{
    const double x = evArg(argv, 0);
    if (!(x >= 0.0))
        return evBadArg(result, thread);
    result->setFloat(std::sqrt(x));
}

void evLog(EV_FUNCTION *, EV_SYMBOL *result, EV_SYMBOL **argv, int thread)
{
    const double x = evArg(argv, 0);
    if (!(x > 0.0))
        return evBadArg(result, thread);
    result->setFloat(std::log(x));
}

void evLog10(EV_FUNCTION *, EV_SYMBOL *result, EV_SYMBOL **argv, int thread)
{
    const double x = evArg(argv, 0);
    if (!(x > 0.0))
        return evBadArg(result, thread);
    result->setFloat(std::log10(x));
}

void evAsin(EV_FUNCTION *, EV_SYMBOL *result, EV_SYMBOL **argv, int thread)
{
    const double x = evArg(argv, 0);
    if (!(x >= -1.0 && x <= 1.0))
        return evBadArg(result, thread);
    result->setFloat(std::asin(x) * theRadToDeg);
}

void evAcos(EV_FUNCTION *, EV_SYMBOL *result, EV_SYMBOL **argv, int thread)
{
    const double x = evArg(argv, 0);
    if (!(x >= -1.0 && x <= 1.0))
        return evBadArg(result, thread);
    result->setFloat(std::acos(x) * theRadToDeg);
}

// At odd multiples of 90 the cosine is exactly 0 (see evReduce): a pole.
void evTan(EV_FUNCTION *, EV_SYMBOL *result, EV_SYMBOL **argv, int thread)
{
    const double x = evArg(argv, 0);
    const double c = evCosDeg(x);
    if (c == 0.0)
        return evBadArg(result, thread);
    result->setFloat(evSinDeg(x) / c + 0.0);
}

void evPow(EV_FUNCTION *, EV_SYMBOL *result, EV_SYMBOL **argv, int thread)
{
    const double r = std::pow(evArg(argv, 0), evArg(argv, 1));
    if (std::isnan(r))
        return evBadArg(result, thread);
    result->setFloat(r);
}

void evMin(EV_FUNCTION *, EV_SYMBOL *result, EV_SYMBOL **argv, int)
{
    const double a = evArg(argv, 0), b = evArg(argv, 1);
    result->setFloat(b < a ? b : a);
}

void evMax(EV_FUNCTION *, EV_SYMBOL *result, EV_SYMBOL **argv, int)
{
    const double a = evArg(argv, 0), b = evArg(argv, 1);
    result->setFloat(b > a ? b : a);
}

void evAtan2(EV_FUNCTION *, EV_SYMBOL *result, EV_SYMBOL **argv, int)
{
    result->setFloat(std::atan2(evArg(argv, 0), evArg(argv, 1)) * theRadToDeg);
}

void evHypot(EV_FUNCTION *, EV_SYMBOL *result, EV_SYMBOL **argv, int)
{
    result->setFloat(std::hypot(evArg(argv, 0), evArg(argv, 1)));
}

void evClampFn(EV_FUNCTION *, EV_SYMBOL *result, EV_SYMBOL **argv, int)
{
    result->setFloat(evClamp(evArg(argv, 0), evArg(argv, 1), evArg(argv, 2)));
}

void evFitFn(EV_FUNCTION *, EV_SYMBOL *result, EV_SYMBOL **argv, int)
{
    result->setFloat(evFit(evArg(argv, 0), evArg(argv, 1), evArg(argv, 2),
                           evArg(argv, 3), evArg(argv, 4)));
}

template <int OMIN, int OMAX>
void evFitFixed(EV_FUNCTION *, EV_SYMBOL *result, EV_SYMBOL **argv, int)
{
    result->setFloat(evFit(evArg(argv, 0), OMIN, OMAX, evArg(argv, 1), evArg(argv, 2)));
}

void evLerp(EV_FUNCTION *, EV_SYMBOL *result, EV_SYMBOL **argv, int)
{
    const double a = evArg(argv, 0), b = evArg(argv, 1), t = evArg(argv, 2);
    result->setFloat(a + (b - a) * t);
}

void evSmooth(EV_FUNCTION *, EV_SYMBOL *result, EV_SYMBOL **argv, int)
{
    const double v = evArg(argv, 0), lo = evArg(argv, 1), hi = evArg(argv, 2);
    if (lo == hi)
        return result->setFloat(v < lo ? 0.0 : 1.0);
    const double u = evFit(v, lo, hi, 0.0, 1.0);
    result->setFloat(u * u * (3.0 - 2.0 * u));
}

// Kept for lookups: the compiler evaluates if() lazily without calling it.
void evIf(EV_FUNCTION *, EV_SYMBOL *result, EV_SYMBOL **argv, int)
{
    result->setFloat(evArg(argv, 0) != 0.0 ? evArg(argv, 1) : evArg(argv, 2));
}

} // namespace

void evRegisterFloatLibrary()
{
    // Local statics: built on first use, so registration never depends on
    // the order in which translation units initialise.
    static EV_FUNCTION theRecords[] = {
        {0, "abs", 1, EV_TYPEFLOAT, nullptr, evAbs},
        {0, "sign", 1, EV_TYPEFLOAT, nullptr, evSign},
        {0, "min", 2, EV_TYPEFLOAT, nullptr, evMin},
        {0, "max", 2, EV_TYPEFLOAT, nullptr, evMax},
        {0, "clamp", 3, EV_TYPEFLOAT, nullptr, evClampFn},
        {0, "floor", 1, EV_TYPEFLOAT, nullptr, evFloor},
        {0, "ceil", 1, EV_TYPEFLOAT, nullptr, evCeil},
        {0, "int", 1, EV_TYPEFLOAT, nullptr, evInt},
        {0, "frac", 1, EV_TYPEFLOAT, nullptr, evFrac},
        {0, "round", 1, EV_TYPEFLOAT, nullptr, evRound},
        {0, "sqrt", 1, EV_TYPEFLOAT, nullptr, evSqrt},
        {0, "pow", 2, EV_TYPEFLOAT, nullptr, evPow},
        {0, "exp", 1, EV_TYPEFLOAT, nullptr, evExp},
        {0, "log", 1, EV_TYPEFLOAT, nullptr, evLog},
        {0, "log10", 1, EV_TYPEFLOAT, nullptr, evLog10},
        {0, "sin", 1, EV_TYPEFLOAT, nullptr, evSin},
        {0, "cos", 1, EV_TYPEFLOAT, nullptr, evCos},
        {0, "tan", 1, EV_TYPEFLOAT, nullptr, evTan},
        {0, "asin", 1, EV_TYPEFLOAT, nullptr, evAsin},
        {0, "acos", 1, EV_TYPEFLOAT, nullptr, evAcos},
        {0, "atan", 1, EV_TYPEFLOAT, nullptr, evAtan},
        {0, "atan2", 2, EV_TYPEFLOAT, nullptr, evAtan2},
        {0, "sinh", 1, EV_TYPEFLOAT, nullptr, evSinh},
        {0, "cosh", 1, EV_TYPEFLOAT, nullptr, evCosh},
        {0, "tanh", 1, EV_TYPEFLOAT, nullptr, evTanh},
        {0, "deg", 1, EV_TYPEFLOAT, nullptr, evDeg},
        {0, "rad", 1, EV_TYPEFLOAT, nullptr, evRad},
        {0, "hypot", 2, EV_TYPEFLOAT, nullptr, evHypot},
        {0, "fit", 5, EV_TYPEFLOAT, nullptr, evFitFn},
        {0, "fit01", 3, EV_TYPEFLOAT, nullptr, evFitFixed<0, 1>},
        {0, "fit10", 3, EV_TYPEFLOAT, nullptr, evFitFixed<1, 0>},
        {0, "fit11", 3, EV_TYPEFLOAT, nullptr, evFitFixed<-1, 1>},
        {0, "lerp", 3, EV_TYPEFLOAT, nullptr, evLerp},
        {0, "smooth", 3, EV_TYPEFLOAT, nullptr, evSmooth},
        {0, "rand", 1, EV_TYPEFLOAT, nullptr, evRand},
        {0, "if", 3, EV_TYPEFLOAT, nullptr, evIf},
    };
    static const struct
    {
        const char *name;
        EV_DIRECT_FLOAT_FUNC direct;
    } theDirect[] = {
        {"abs", evAbsDirect},   {"sign", evSignDirect}, {"floor", evFloorDirect},
        {"ceil", evCeilDirect}, {"int", evIntDirect},   {"frac", evFracDirect},
        {"round", evRoundDirect}, {"exp", evExpDirect}, {"sin", evSinDirect},
        {"cos", evCosDirect},   {"atan", evAtanDirect}, {"sinh", evSinhDirect},
        {"cosh", evCoshDirect}, {"tanh", evTanhDirect}, {"deg", evDegDirect},
        {"rad", evRadDirect},   {"rand", evRandDirect},
    };
    for (EV_FUNCTION &record : theRecords) {
        for (const auto &d : theDirect)
            if (!std::strcmp(d.name, record.getName()))
                record.setDirectFloat(d.direct);
        ev_AddFunction(&record);
    }
}
