#ifndef UT_MATRIX3_H
#define UT_MATRIX3_H

#include <ut/UT_Vector3.h>
#include <ut/UT_XformOrder.h>

#include <Imath/ImathMatrix.h>

#include <ostream>

/// A 3x3 float matrix: a rotation, possibly with scale.
///
/// Vectors are rows and are multiplied on the left (v' = v * M), as in
/// Imath, so A * B applies A first and then B, and row i is where the i-th
/// axis goes. UT_XformOrder describes how Euler angles map to a matrix.
class UT_Matrix3
{
public:
    /// The identity.
    UT_Matrix3() noexcept = default;
    UT_Matrix3(float a00, float a01, float a02,
               float a10, float a11, float a12,
               float a20, float a21, float a22) noexcept
        : myM(a00, a01, a02, a10, a11, a12, a20, a21, a22) {}
    explicit UT_Matrix3(const Imath::M33f &m) noexcept : myM(m) {}

    /// Row access: m[row][column].
    float *operator[](int row) noexcept { return myM[row]; }
    const float *operator[](int row) const noexcept { return myM[row]; }
    float &operator()(int row, int col) noexcept { return myM[row][col]; }
    float operator()(int row, int col) const noexcept { return myM[row][col]; }
    UT_Vector3 getRow(int row) const noexcept { return {myM[row][0], myM[row][1], myM[row][2]}; }
    void setRow(int row, const UT_Vector3 &v) noexcept { myM[row][0] = v[0]; myM[row][1] = v[1]; myM[row][2] = v[2]; }

    /// Makes this the identity.
    void identity() noexcept { myM.makeIdentity(); }
    bool isIdentity() const noexcept { return myM == Imath::M33f(); }
    void transpose() noexcept { myM.transpose(); }

    UT_Matrix3 operator*(const UT_Matrix3 &o) const noexcept { return UT_Matrix3(myM * o.myM); }
    UT_Matrix3 &operator*=(const UT_Matrix3 &o) noexcept { myM *= o.myM; return *this; }
    bool operator==(const UT_Matrix3 &o) const noexcept { return myM == o.myM; }
    bool operator!=(const UT_Matrix3 &o) const noexcept { return myM != o.myM; }
    /// True when no two entries differ by more than tol.
    bool isEqual(const UT_Matrix3 &o, float tol) const noexcept { return myM.equalWithAbsError(o.myM, tol); }

    /// Finds angles (radians, as x, y, z) that, applied in the given order,
    /// give this matrix. Scale applied before the rotation (a length per
    /// row) is ignored. Angles are not unique: each lies in [-pi, pi], and
    /// near gimbal lock the split between the first and last angle is
    /// arbitrary but still rebuilds the matrix. Returns 0 on success, or 1
    /// (with zero angles) when an entry is not finite or a row is zero.
    int crack(UT_Vector3 &radians, const UT_XformOrder &order) const noexcept;

    const Imath::M33f &imath() const noexcept { return myM; }
    Imath::M33f &imath() noexcept { return myM; }

private:
    Imath::M33f myM;
};

/// A row vector times a matrix.
inline UT_Vector3 operator*(const UT_Vector3 &v, const UT_Matrix3 &m) noexcept
{
    return {v[0] * m(0, 0) + v[1] * m(1, 0) + v[2] * m(2, 0),
            v[0] * m(0, 1) + v[1] * m(1, 1) + v[2] * m(2, 1),
            v[0] * m(0, 2) + v[1] * m(1, 2) + v[2] * m(2, 2)};
}

std::ostream &operator<<(std::ostream &os, const UT_Matrix3 &m);

#endif
