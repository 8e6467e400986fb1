#include <ut/UT_Matrix3.h>
#include <ut/UT_Quaternion.h>
#include <ut/UT_XformOrder.h>

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>
#include <string>

namespace {

constexpr float thePi = 3.14159265f, theDeg = thePi / 180;

struct OrderCase
{
    UT_XformOrder::RotOrder order;
    const char *axes; // applied left to right
};
const OrderCase theOrders[] = {{UT_XformOrder::XYZ, "XYZ"}, {UT_XformOrder::XZY, "XZY"}, {UT_XformOrder::YXZ, "YXZ"},
                               {UT_XformOrder::YZX, "YZX"}, {UT_XformOrder::ZXY, "ZXY"}, {UT_XformOrder::ZYX, "ZYX"}};

// Written out independently of the library: row vectors, the axis after
// `axis` turning towards the one after that, axes applied left to right.
UT_Matrix3 refEuler(const UT_Vector3 &radians, const char *axes)
{
    UT_Matrix3 m;
    for (int step = 0; step < 3; ++step) {
        int axis = axes[step] - 'X', i = (axis + 1) % 3, j = (axis + 2) % 3;
        UT_Matrix3 r;
        r(i, i) = r(j, j) = std::cos(radians[axis]);
        r(i, j) = std::sin(radians[axis]);
        r(j, i) = -r(i, j);
        m = m * r;
    }
    return m;
}

UT_Quaternion euler(const UT_Vector3 &radians, UT_XformOrder::RotOrder order)
{
    UT_Quaternion q;
    q.updateFromEuler(radians, order);
    return q;
}

UT_Matrix3 matrix(const UT_Quaternion &q)
{
    UT_Matrix3 m;
    q.getRotationMatrix(m);
    return m;
}

void expectNear(const UT_Vector3 &got, const UT_Vector3 &want, float tol = 1e-5f)
{
    EXPECT_TRUE((got - want).length() < tol) << "got " << got << ", want " << want;
}

} // namespace

TEST(UT_XformOrder, NamesAnyCaseAndFallbackToXYZ)
{
    EXPECT_EQ(static_cast<int>(UT_XformOrder::ZYX), 5); // stored as numbers
    UT_XformOrder order;
    for (const OrderCase &c : theOrders)
        EXPECT_TRUE(order.setRotOrder(c.axes) && order.rotOrder() == c.order && std::string(order.name()) == c.axes);
    EXPECT_EQ(UT_XformOrder("zXy").rotOrder(), UT_XformOrder::ZXY);
    for (const char *bad : {"", "xy", "xyzz", "xxy", "x y", static_cast<const char *>(nullptr)}) {
        order.setRotOrder(UT_XformOrder::ZYX);
        EXPECT_FALSE(order.setRotOrder(bad));
        EXPECT_EQ(order, UT_XformOrder());
    }
}

TEST(UT_Rotation, KnownAnglesInEveryOrder)
{
    // 90 degrees about every axis, applied to (1, 2, 3) step by step with
    // X: (a,b,c) -> (a,-c,b), Y: (a,b,c) -> (c,b,-a), Z: (a,b,c) -> (-b,a,c);
    // e.g. XYZ: (1,-3,2) -> (2,-3,-1) -> (3,2,-1).
    const UT_Vector3 want[] = {{3, 2, -1}, {2, 1, -3}, {-1, 3, 2}, {-2, 1, 3}, {1, -3, 2}, {3, -2, 1}};
    const float s15 = std::sin(15 * theDeg), c15 = std::cos(15 * theDeg);
    for (int k = 0; k < 6; ++k) {
        const OrderCase &c = theOrders[k];
        SCOPED_TRACE(c.axes);
        UT_Quaternion q = euler(UT_Vector3(90, 90, 90) * theDeg, c.order);
        expectNear(q.rotate(UT_Vector3(1, 2, 3)), want[k]);
        expectNear(UT_Vector3(1, 2, 3) * matrix(q), want[k]);
        // 30 degrees about one axis alone: sin 15 on that axis, cos 15 real,
        // and crack gives the angle back (unique away from gimbal lock).
        for (int axis = 0; axis < 3; ++axis) {
            UT_Vector3 angles, imaginary, cracked;
            angles[axis] = 30 * theDeg;
            imaginary[axis] = s15;
            q = euler(angles, c.order);
            expectNear(UT_Vector3(q.x(), q.y(), q.z()), imaginary);
            EXPECT_NEAR(q.w(), c15, 1e-6f);
            ASSERT_EQ(matrix(q).crack(cracked, c.order), 0);
            expectNear(cracked, angles);
        }
    }
}

TEST(UT_Rotation, RandomAnglesMatchAxisProductsAndCrackRebuilds)
{
    std::mt19937 rng(7);
    std::uniform_real_distribution<float> angle(-thePi, thePi);
    for (const OrderCase &c : theOrders) {
        SCOPED_TRACE(c.axes);
        for (int n = 0; n < 200; ++n) {
            UT_Vector3 radians(angle(rng), angle(rng), angle(rng)), cracked;
            if (n < 2) // gimbal lock: the middle axis at +-90 degrees
                radians[c.axes[1] - 'X'] = (n ? -90 : 90) * theDeg;
            UT_Matrix3 want = refEuler(radians, c.axes), got = matrix(euler(radians, c.order));
            EXPECT_TRUE(got.isEqual(want, 2e-6f)) << got << " vs " << want;
            ASSERT_EQ(want.crack(cracked, c.order), 0);
            for (int i = 0; i < 3; ++i) { // the middle angle within +-90 degrees
                float limit = thePi * (i == c.axes[1] - 'X' ? 0.5f : 1.0f) + 1e-6f;
                ASSERT_TRUE(std::isfinite(cracked[i]) && std::fabs(cracked[i]) <= limit) << cracked;
            }
            EXPECT_TRUE(refEuler(cracked, c.axes).isEqual(want, 1e-5f)) << radians << " cracked to " << cracked;
        }
    }
}

TEST(UT_Rotation, CrackIgnoresScaleAndRejectsBadMatrices)
{
    UT_Vector3 radians(0.3f, -0.4f, 1.2f), cracked;
    UT_Matrix3 m = UT_Matrix3(2, 0, 0, 0, 3, 0, 0, 0, 0.5f) * refEuler(radians, "ZXY");
    ASSERT_EQ(m.crack(cracked, UT_XformOrder::ZXY), 0);
    expectNear(cracked, radians);
    m.setRow(1, UT_Vector3());
    EXPECT_NE(m.crack(cracked, UT_XformOrder::ZXY), 0);
    m = UT_Matrix3();
    m(2, 0) = std::numeric_limits<float>::quiet_NaN();
    EXPECT_NE(m.crack(cracked, UT_XformOrder::XYZ), 0);
    EXPECT_EQ(cracked, UT_Vector3());
}

TEST(UT_Quaternion, ProductAppliesLeftOperandFirstAndNormalize)
{
    UT_Quaternion a, b;
    a.updateFromAngleAxis(0.7f, UT_Vector3(1, 2, 0));
    b.updateFromAngleAxis(-1.1f, UT_Vector3(0, 1, 3));
    EXPECT_TRUE(matrix(a * b).isEqual(matrix(a) * matrix(b), 1e-6f));
    UT_Quaternion q(0, 0, 3, 4), zero(0, 0, 0, 0);
    EXPECT_FLOAT_EQ(q.normalize(), 5);
    EXPECT_EQ(q, UT_Quaternion(0, 0, 0.6f, 0.8f));
    EXPECT_EQ(zero.normalize(), 0);
    EXPECT_EQ(zero, UT_Quaternion());
}

TEST(UT_Quaternion, SlerpAboutOneAxis)
{
    // Degrees about Z reached from `from` towards `to`, read back from
    // where X goes.
    auto slerp = [](float from, float to, float t, float b = 0) {
        UT_Quaternion q = euler(UT_Vector3(0, 0, from * theDeg), UT_XformOrder::XYZ);
        q.interpolate(euler(UT_Vector3(0, 0, to * theDeg), UT_XformOrder::XYZ), t, b);
        UT_Vector3 x = q.rotate(UT_Vector3(1, 0, 0));
        EXPECT_NEAR(q.length(), 1, 1e-6f);
        return std::atan2(x.y(), x.x()) / theDeg;
    };
    EXPECT_NEAR(slerp(20, 80, 0.5f), 50, 1e-4f);  // halfway
    EXPECT_NEAR(slerp(20, 80, 0.25f), 35, 1e-4f); // constant speed: 20 + 60 / 4
    // Bias 0.5 sends t = 0.5 to (1 + 0.5) / 2 = 0.75 of the way: 20 + 45.
    EXPECT_NEAR(slerp(20, 80, 0.5f, 0.5f), 65, 1e-4f);
    // 10 to 350 degrees is 20 degrees through 0, not 340 through 180.
    EXPECT_NEAR(slerp(10, 350, 0.5f), 0, 1e-4f);
    EXPECT_NEAR(slerp(10, 350, 0.25f), 5, 1e-4f);
    // Equal and nearly equal rotations: the linear fallback, no 0 / 0.
    EXPECT_NEAR(slerp(30, 30.2f, 0.5f), 30.1f, 1e-3f);
    UT_Quaternion same;
    same.interpolate(UT_Quaternion(), 0.3f);
    EXPECT_EQ(same, UT_Quaternion());
}
