#include "UT_Matrix3.h"

#include <Imath/ImathEuler.h>

#include <cmath>

namespace {

// Imath names the orders as we do: its XYZ rotates about X first, for row
// vectors, with the axes fixed.
const Imath::Eulerf::Order theImathOrders[6] = {Imath::Eulerf::XYZ, Imath::Eulerf::XZY, Imath::Eulerf::YXZ,
                                                Imath::Eulerf::YZX, Imath::Eulerf::ZXY, Imath::Eulerf::ZYX};

} // namespace

int UT_Matrix3::crack(UT_Vector3 &radians, const UT_XformOrder &order) const noexcept
{
    radians.assign(0.0f, 0.0f, 0.0f);
    Imath::M33f unit;
    for (int row = 0; row < 3; ++row) {
        double x = myM[row][0], y = myM[row][1], z = myM[row][2];
        double len = std::sqrt(x * x + y * y + z * z);
        if (!std::isfinite(len) || len == 0.0)
            return 1;
        unit[row][0] = static_cast<float>(x / len);
        unit[row][1] = static_cast<float>(y / len);
        unit[row][2] = static_cast<float>(z / len);
    }
    // Imath takes the first angle out before it reads the other two, so
    // gimbal lock gives atan2 of two tiny numbers, never a NaN.
    Imath::Eulerf euler(theImathOrders[order.rotOrder()]);
    euler.extract(unit);
    Imath::V3f xyz = euler.toXYZVector();
    radians.assign(xyz.x, xyz.y, xyz.z);
    return 0;
}

std::ostream &operator<<(std::ostream &os, const UT_Matrix3 &m)
{
    return os << '[' << m.getRow(0) << ", " << m.getRow(1) << ", " << m.getRow(2) << ']';
}
