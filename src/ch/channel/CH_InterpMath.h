#ifndef CH_INTERPMATH_H
#define CH_INTERPMATH_H

// The polynomials and shapes of the interpolation functions, each with its
// derivative beside it: the functions evaluate them in single precision, the
// slope sampling of the match functions in double. u is the parameter over
// the segment, L its length; derivatives are per unit of time.

#include <cmath>

/// The Hermite cubic of cubic() and the match functions: in + A u +
/// (out - in - A - B) u^2 + B u^3, meeting the slopes si and so.
template <typename T>
inline T CHhermiteCubic(T in, T si, T out, T so, T length, T u)
{
    T a = length * si;
    T b = (si + so) * length + T(2) * (in - out);
    return (((out - in - a - b) + b * u) * u + a) * u + in;
}
template <typename T>
inline T CHhermiteCubicSlope(T in, T si, T out, T so, T length, T u)
{
    T a = length * si;
    T b = (si + so) * length + T(2) * (in - out);
    return (a + T(2) * (out - in - a - b) * u + T(3) * b * u * u) / length;
}

/// The quintic Hermite of quintic(): values, slopes and accels met at both
/// ends, the accels scaled by the length once.
template <typename T>
struct CH_Quintic
{
    T in, a, c, c3, c4, c5;

    CH_Quintic(T in_value, T out_value, T si, T so, T ai, T ao, T length) : in(in_value)
    {
        a = si * length;
        c = T(0.5) * ai * length;
        T d = out_value - in - a - c;
        T e = so * length - a - ai * length;
        T f = ao * length - ai * length;
        c5 = T(0.5) * (f - T(6) * e + T(12) * d);
        c4 = T(0.25) * (f - T(2) * e - T(10) * c5);
        c3 = d - c4 - c5;
    }
    T value(T u) const { return in + u * (a + u * (c + u * (c3 + u * (c4 + u * c5)))); }
    T slope(T u, T length) const
    {
        return (a + u * (T(2) * c + u * (T(3) * c3 + u * (T(4) * c4 + u * T(5) * c5)))) / length;
    }
};

/// The ease shapes, from 0 at u = 0 to 1 at u = 1.
enum class CH_EaseShape { Both, In, Out };

inline float CHeaseShape(CH_EaseShape shape, float u)
{
    switch (shape)
    {
    case CH_EaseShape::Both: return 0.5f - 0.5f * std::cos(3.1415927f * u);
    case CH_EaseShape::In: return 1.0f - std::cos(u * 1.5707964f);
    case CH_EaseShape::Out: return std::sin(u * 1.5707964f);
    }
    return 0.0f;
}
/// d(value)/d(time) of in + shape(u) (out - in) over a segment of length L.
inline double CHeaseSlope(CH_EaseShape shape, double out_minus_in, double length, double u)
{
    const double pi = 3.14159265358979323846;
    switch (shape)
    {
    case CH_EaseShape::Both: return out_minus_in * 0.5 * pi * std::sin(pi * u) / length;
    case CH_EaseShape::In: return out_minus_in * 0.5 * pi * std::sin(0.5 * pi * u) / length;
    case CH_EaseShape::Out: return out_minus_in * 0.5 * pi * std::cos(0.5 * pi * u) / length;
    }
    return 0.0;
}

#endif
