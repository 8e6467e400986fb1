#ifndef UT_XFORMORDER_H
#define UT_XFORMORDER_H

/// The order in which three rotations about the X, Y and Z axes are applied.
///
/// Rotations act on row vectors (v' = v * M), as Imath's do, so the matrix
/// of a rotation order is the product of the axis matrices from left to
/// right: for XYZ the vector is rotated about X first, then about Y, then
/// about Z, and M = Rx * Ry * Rz. The axes stay fixed in space while the
/// three rotations are applied. Angles are always given as (x, y, z)
/// whatever the order: component 0 is the angle about X, and so on. Positive
/// angles turn counter-clockwise when looking from the positive axis
/// towards the origin (Z by 90 degrees takes X to Y).
class UT_XformOrder
{
public:
    /// The values are stable: files and hosts may store them as numbers.
    enum RotOrder
    {
        XYZ = 0,
        XZY = 1,
        YXZ = 2,
        YZX = 3,
        ZXY = 4,
        ZYX = 5
    };

    constexpr UT_XformOrder(RotOrder order = XYZ) noexcept : myOrder(order) {}
    /// Reads an order name such as "xyz" or "ZXY" (any case); anything else
    /// gives XYZ.
    explicit UT_XformOrder(const char *name) noexcept { setRotOrder(name); }

    constexpr RotOrder rotOrder() const noexcept { return myOrder; }
    void setRotOrder(RotOrder order) noexcept { myOrder = order; }
    /// Reads an order name (any case). Returns false, and sets XYZ, when the
    /// name is null or not one of the six orders.
    bool setRotOrder(const char *name) noexcept;

    /// The axis (0 = X, 1 = Y, 2 = Z) applied at step 0, 1 or 2.
    constexpr int axis(int step) const noexcept { return theAxes[myOrder][step]; }
    /// The upper-case name of the order, such as "XYZ".
    const char *name() const noexcept { return theNames[myOrder]; }

    constexpr bool operator==(const UT_XformOrder &o) const noexcept { return myOrder == o.myOrder; }
    constexpr bool operator!=(const UT_XformOrder &o) const noexcept { return myOrder != o.myOrder; }

private:
    static constexpr int theAxes[6][3] = {{0, 1, 2}, {0, 2, 1}, {1, 0, 2}, {1, 2, 0}, {2, 0, 1}, {2, 1, 0}};
    static constexpr const char *theNames[6] = {"XYZ", "XZY", "YXZ", "YZX", "ZXY", "ZYX"};

    RotOrder myOrder = XYZ;
};

#endif
