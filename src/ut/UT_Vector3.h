#ifndef UT_VECTOR3_H
#define UT_VECTOR3_H

#include <cmath>
#include <ostream>

/// Three floats: a point, a direction or a spline knot.
class UT_Vector3
{
public:
    float vec[3];

    constexpr UT_Vector3() noexcept : vec{0.0f, 0.0f, 0.0f} {}
    constexpr UT_Vector3(float x, float y, float z) noexcept : vec{x, y, z} {}

    constexpr float x() const noexcept { return vec[0]; }
    constexpr float y() const noexcept { return vec[1]; }
    constexpr float z() const noexcept { return vec[2]; }
    float &x() noexcept { return vec[0]; }
    float &y() noexcept { return vec[1]; }
    float &z() noexcept { return vec[2]; }
    float &operator()(int i) noexcept { return vec[i]; }
    constexpr float operator()(int i) const noexcept { return vec[i]; }
    float &operator[](int i) noexcept { return vec[i]; }
    constexpr float operator[](int i) const noexcept { return vec[i]; }
    void assign(float x, float y, float z) noexcept { vec[0] = x; vec[1] = y; vec[2] = z; }

    constexpr UT_Vector3 operator+(const UT_Vector3 &o) const noexcept { return {vec[0] + o.vec[0], vec[1] + o.vec[1], vec[2] + o.vec[2]}; }
    constexpr UT_Vector3 operator-(const UT_Vector3 &o) const noexcept { return {vec[0] - o.vec[0], vec[1] - o.vec[1], vec[2] - o.vec[2]}; }
    constexpr UT_Vector3 operator-() const noexcept { return {-vec[0], -vec[1], -vec[2]}; }
    constexpr UT_Vector3 operator*(float s) const noexcept { return {vec[0] * s, vec[1] * s, vec[2] * s}; }
    constexpr UT_Vector3 operator/(float s) const noexcept { return {vec[0] / s, vec[1] / s, vec[2] / s}; }
    UT_Vector3 &operator+=(const UT_Vector3 &o) noexcept { return *this = *this + o; }
    UT_Vector3 &operator-=(const UT_Vector3 &o) noexcept { return *this = *this - o; }
    UT_Vector3 &operator*=(float s) noexcept { return *this = *this * s; }
    UT_Vector3 &operator/=(float s) noexcept { return *this = *this / s; }
    constexpr bool operator==(const UT_Vector3 &o) const noexcept { return vec[0] == o.vec[0] && vec[1] == o.vec[1] && vec[2] == o.vec[2]; }
    constexpr bool operator!=(const UT_Vector3 &o) const noexcept { return !(*this == o); }

    constexpr float dot(const UT_Vector3 &o) const noexcept { return vec[0] * o.vec[0] + vec[1] * o.vec[1] + vec[2] * o.vec[2]; }
    constexpr UT_Vector3 cross(const UT_Vector3 &o) const noexcept
    {
        return {vec[1] * o.vec[2] - vec[2] * o.vec[1],
                vec[2] * o.vec[0] - vec[0] * o.vec[2],
                vec[0] * o.vec[1] - vec[1] * o.vec[0]};
    }
    constexpr float length2() const noexcept { return dot(*this); }
    float length() const noexcept { return std::sqrt(length2()); }
    /// Scales to unit length and returns the old length; a zero vector stays
    /// zero (and 0 is returned).
    float normalize() noexcept
    {
        float len = length();
        if (len > 0.0f)
            *this /= len;
        return len;
    }
};

constexpr UT_Vector3 operator*(float s, const UT_Vector3 &v) noexcept { return v * s; }

inline std::ostream &operator<<(std::ostream &os, const UT_Vector3 &v)
{
    return os << '[' << v.vec[0] << ", " << v.vec[1] << ", " << v.vec[2] << ']';
}

#endif
