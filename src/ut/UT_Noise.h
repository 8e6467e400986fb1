#ifndef UT_NOISE_H
#define UT_NOISE_H

#include <ut/UT_Vector3.h>

#include <cstdint>

/// Seeded 3D noise and turbulence (docs/noise.md gives the details).
///
/// The lattice is hashed through a 256-entry permutation that is shuffled
/// from the seed by a fixed generator, so a seed gives the same values on
/// every run and platform. The noise repeats every 256 units on each axis.
/// Evaluation is const and touches nothing but the table: one generator
/// may be shared by any number of threads, as long as none of them changes
/// its seed or type meanwhile.
class UT_Noise
{
public:
    enum Type
    {
        /// Gradient noise: smooth, signed, in [-1, 1] (within +-0.999),
        /// 0 at every integer lattice point.
        PERLIN = 0,
        /// Distance to the nearest of randomly placed points (one per lattice
        /// cell), divided by sqrt(3): in [0, 1), 0 at the points, with creases
        /// where two points are equally near.
        CELLULAR = 1
    };

    /// Octaves above this add nothing a float can show and are dropped.
    static constexpr int theMaxOctaves = 32;

    explicit UT_Noise(int seed = 0, Type type = PERLIN) noexcept;

    void setSeed(int seed) noexcept;
    int getSeed() const noexcept { return mySeed; }
    void setType(Type type) noexcept { myType = type; }
    Type getType() const noexcept { return myType; }

    /// One octave at p. Non-finite coordinates give 0.
    float noise(const UT_Vector3 &p) const noexcept { return noise(p[0], p[1], p[2]); }
    float noise(float x, float y, float z) const noexcept;

    /// Sums octaves i = 0 .. n-1 of amplitude rough^i times the noise at
    /// 2^i p, where n is depth clamped to [1, theMaxOctaves] (depth 0 still
    /// gives one octave). atten shapes the sum s: with the amplitude bound
    /// S = sum of |rough|^i, the result is sign(s) S (|s| / S)^atten, so the
    /// range stays [-S, S] (PERLIN) or, for rough >= 0, [0, S) (CELLULAR);
    /// atten > 1 pulls values towards 0, atten < 1 pushes them out to the
    /// bound. atten <= 0 (or NaN) is taken as 1: the sum as it is.
    float turbulence(const UT_Vector3 &p, int depth, float rough = 0.5f, float atten = 1.0f) const noexcept
    {
        return turbulence(p[0], p[1], p[2], depth, rough, atten);
    }
    float turbulence(float x, float y, float z, int depth, float rough = 0.5f, float atten = 1.0f) const noexcept;

    /// S above: the bound on |turbulence| for this depth and roughness.
    static float turbulenceBound(int depth, float rough) noexcept;

private:
    double evaluate(double x, double y, double z) const noexcept;
    double gradient(double x, double y, double z) const noexcept;
    double cellular(double x, double y, double z) const noexcept;

    // The permutation twice over, so that a hash plus a coordinate in
    // [0, 256) needs no wrapping.
    std::uint8_t myPerm[512];
    int mySeed = 0;
    Type myType = PERLIN;
};

#endif
