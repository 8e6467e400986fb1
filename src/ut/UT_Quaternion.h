#ifndef UT_QUATERNION_H
#define UT_QUATERNION_H

#include <ut/UT_Matrix3.h>
#include <ut/UT_Vector3.h>
#include <ut/UT_XformOrder.h>

#include <Imath/ImathQuat.h>

#include <ostream>

/// A rotation as a quaternion (x, y, z, w), w being the real part.
///
/// Rotations follow UT_Matrix3: row vectors, and a * b applies a first and
/// then b, so the matrix of a * b is the matrix of a times the matrix of b.
/// (That is the Hamilton product b a; Imath's operator* is the plain
/// Hamilton product, hence the swap.) The rotating calls expect unit
/// quaternions.
class UT_Quaternion
{
public:
    /// The identity rotation (0, 0, 0, 1).
    UT_Quaternion() noexcept : myQ(1.0f, 0.0f, 0.0f, 0.0f) {}
    UT_Quaternion(float x, float y, float z, float w) noexcept : myQ(w, x, y, z) {}
    explicit UT_Quaternion(const Imath::Quatf &q) noexcept : myQ(q) {}

    float x() const noexcept { return myQ.v.x; }
    float y() const noexcept { return myQ.v.y; }
    float z() const noexcept { return myQ.v.z; }
    float w() const noexcept { return myQ.r; }
    float &x() noexcept { return myQ.v.x; }
    float &y() noexcept { return myQ.v.y; }
    float &z() noexcept { return myQ.v.z; }
    float &w() noexcept { return myQ.r; }
    void assign(float x, float y, float z, float w) noexcept { myQ = Imath::Quatf(w, x, y, z); }

    void identity() noexcept { myQ = Imath::Quatf(1.0f, 0.0f, 0.0f, 0.0f); }

    /// Becomes the rotation by the angles (radians, as x, y, z) applied in
    /// the given order.
    void updateFromEuler(const UT_Vector3 &radians, const UT_XformOrder &order) noexcept;
    /// Becomes the rotation by an angle about an axis (of any length but 0;
    /// a zero axis gives the identity).
    void updateFromAngleAxis(float radians, const UT_Vector3 &axis) noexcept;

    /// The rotation matrix (for a unit quaternion).
    void getRotationMatrix(UT_Matrix3 &m) const noexcept;
    /// Rotates a vector, as v * getRotationMatrix() would.
    UT_Vector3 rotate(const UT_Vector3 &v) const noexcept;

    float length() const noexcept { return myQ.length(); }
    float dot(const UT_Quaternion &o) const noexcept { return myQ ^ o.myQ; }
    /// Scales to unit length and returns the old length; a zero quaternion
    /// becomes the identity (and 0 is returned).
    float normalize() noexcept;
    /// The inverse rotation of a unit quaternion.
    UT_Quaternion conjugate() const noexcept { return UT_Quaternion(-x(), -y(), -z(), w()); }

    /// Spherical linear interpolation from this rotation (t = 0) to target
    /// (t = 1), stored in this. It takes the shorter way round: when the
    /// two are more than half a turn of the 4D sphere apart the target's
    /// sign is flipped (q and -q are the same rotation). Nearly equal
    /// rotations are blended linearly and normalised, where the sine
    /// formula loses its precision. b biases the pace: for b in [-1, 1] the
    /// parameter t in (0, 1) is remapped so that t = 0.5 lands (1 + b) / 2
    /// of the way; b = 0 leaves t alone, b > 0 moves towards the target
    /// sooner. t outside [0, 1] extrapolates along the same arc.
    void interpolate(const UT_Quaternion &target, float t, float b = 0.0f) noexcept;

    /// a * b: a first, then b.
    UT_Quaternion operator*(const UT_Quaternion &o) const noexcept { return UT_Quaternion(o.myQ * myQ); }
    UT_Quaternion &operator*=(const UT_Quaternion &o) noexcept { myQ = o.myQ * myQ; return *this; }
    bool operator==(const UT_Quaternion &o) const noexcept { return myQ == o.myQ; }
    bool operator!=(const UT_Quaternion &o) const noexcept { return myQ != o.myQ; }

    const Imath::Quatf &imath() const noexcept { return myQ; }
    Imath::Quatf &imath() noexcept { return myQ; }

private:
    Imath::Quatf myQ;
};

std::ostream &operator<<(std::ostream &os, const UT_Quaternion &q);

#endif
