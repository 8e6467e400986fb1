#include "UT_Quaternion.h"

#include <algorithm>
#include <cmath>

namespace {

// Below this angle between the two (about 1.8 degrees on the 4D sphere)
// slerp's division by sin(angle) costs more precision than a normalised
// linear blend loses.
constexpr double theLinearDot = 0.9995;

// Schlick's bias: maps (0, 1) onto itself with 0.5 going to a.
double utBias(double t, float b)
{
    if (b == 0.0f || !(t > 0.0 && t < 1.0))
        return t;
    double a = 0.5 * (1.0 + std::clamp(static_cast<double>(b), -1.0, 1.0));
    // a t / ((1 - 2a)(1 - t) + a): the denominator blends 1 - t and t, both
    // positive here, so it never vanishes.
    return a * t / ((1.0 - 2.0 * a) * (1.0 - t) + a);
}

} // namespace

void UT_Quaternion::updateFromEuler(const UT_Vector3 &radians, const UT_XformOrder &order) noexcept
{
    identity();
    for (int step = 0; step < 3; ++step) {
        int axis = order.axis(step);
        double half = 0.5 * radians[axis];
        Imath::Quatf turn(static_cast<float>(std::cos(half)), 0.0f, 0.0f, 0.0f);
        turn.v[axis] = static_cast<float>(std::sin(half));
        *this *= UT_Quaternion(turn);
    }
}

void UT_Quaternion::updateFromAngleAxis(float radians, const UT_Vector3 &axis) noexcept
{
    UT_Vector3 unit = axis;
    if (unit.normalize() == 0.0f) {
        identity();
        return;
    }
    double half = 0.5 * radians;
    float s = static_cast<float>(std::sin(half));
    myQ = Imath::Quatf(static_cast<float>(std::cos(half)), unit[0] * s, unit[1] * s, unit[2] * s);
}

void UT_Quaternion::getRotationMatrix(UT_Matrix3 &m) const noexcept
{
    m = UT_Matrix3(myQ.toMatrix33());
}

UT_Vector3 UT_Quaternion::rotate(const UT_Vector3 &v) const noexcept
{
    UT_Matrix3 m;
    getRotationMatrix(m);
    return v * m;
}

float UT_Quaternion::normalize() noexcept
{
    float len = length();
    if (len > 0.0f)
        myQ /= len;
    else
        identity();
    return len;
}

void UT_Quaternion::interpolate(const UT_Quaternion &target, float t, float b) noexcept
{
    double u = utBias(t, b);
    double from[4] = {x(), y(), z(), w()};
    double to[4] = {target.x(), target.y(), target.z(), target.w()};
    double cosine = from[0] * to[0] + from[1] * to[1] + from[2] * to[2] + from[3] * to[3];
    if (cosine < 0.0) {
        cosine = -cosine;
        for (double &c : to)
            c = -c;
    }
    double w0, w1;
    if (cosine > theLinearDot) {
        w0 = 1.0 - u;
        w1 = u;
    } else {
        double angle = std::acos(cosine);
        double s = std::sin(angle);
        w0 = std::sin((1.0 - u) * angle) / s;
        w1 = std::sin(u * angle) / s;
    }
    double r[4], len2 = 0.0;
    for (int i = 0; i < 4; ++i) {
        r[i] = w0 * from[i] + w1 * to[i];
        len2 += r[i] * r[i];
    }
    // Only the linear blend leaves the sphere; dividing by the length is
    // harmless for the arc.
    double len = std::sqrt(len2);
    if (len > 0.0)
        for (double &c : r)
            c /= len;
    assign(static_cast<float>(r[0]), static_cast<float>(r[1]), static_cast<float>(r[2]), static_cast<float>(r[3]));
}

std::ostream &operator<<(std::ostream &os, const UT_Quaternion &q)
{
    return os << '[' << q.x() << ", " << q.y() << ", " << q.z() << ", " << q.w() << ']';
}
