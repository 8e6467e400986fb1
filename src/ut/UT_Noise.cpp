#include "UT_Noise.h"

#include <algorithm>
#include <cmath>

namespace {

// The worst case of the raw gradient sum over all choices of corner
// gradients is 1.03635 (docs/noise.md); dividing by 1.05 keeps every value
// inside [-1, 1] with room for the error of that estimate.
constexpr double theGradientScale = 1.0 / 1.05;
// The nearest point is never farther than the one in p's own cell.
constexpr double theCellularScale = 0.57735026918962576; // 1 / sqrt(3)

// splitmix64: a fixed, well-mixed sequence from one 64-bit state.
std::uint64_t utNext(std::uint64_t &state)
{
    std::uint64_t z = (state += 0x9E3779B97F4A7C15ull);
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
    return z ^ (z >> 31);
}

// The lattice coordinate of floor(v), modulo 256. fmod is exact, so this is
// right for every finite v, however large.
int utLattice(double floored)
{
    double m = std::fmod(floored, 256.0);
    if (m < 0.0)
        m += 256.0;
    return static_cast<int>(m);
}

double utFade(double t) { return t * t * t * (t * (t * 6.0 - 15.0) + 10.0); }

double utLerp(double t, double a, double b) { return a + t * (b - a); }

double utBound(int depth, float rough)
{
    int octaves = std::clamp(depth, 1, UT_Noise::theMaxOctaves);
    double bound = 0.0, amplitude = 1.0;
    for (int i = 0; i < octaves; ++i) {
        bound += amplitude;
        amplitude *= std::fabs(static_cast<double>(rough));
    }
    return bound;
}

// One of the twelve cube-edge directions (four repeated to make sixteen),
// dotted with (x, y, z): two components of +-1 and one 0.
double utGrad(int hash, double x, double y, double z)
{
    int h = hash & 15;
    double u = h < 8 ? x : y;
    double v = h < 4 ? y : (h == 12 || h == 14 ? x : z);
    return ((h & 1) ? -u : u) + ((h & 2) ? -v : v);
}

} // namespace

UT_Noise::UT_Noise(int seed, Type type) noexcept : myType(type)
{
    setSeed(seed);
}

void UT_Noise::setSeed(int seed) noexcept
{
    mySeed = seed;
    std::uint8_t perm[256];
    for (int i = 0; i < 256; ++i)
        perm[i] = static_cast<std::uint8_t>(i);
    // Fisher-Yates; the index comes from the high 32 bits scaled to
    // [0, i], with integer arithmetic only.
    std::uint64_t state = static_cast<std::uint32_t>(seed);
    for (int i = 255; i > 0; --i) {
        std::uint64_t j = ((utNext(state) >> 32) * static_cast<std::uint64_t>(i + 1)) >> 32;
        std::swap(perm[i], perm[j]);
    }
    for (int i = 0; i < 512; ++i)
        myPerm[i] = perm[i & 255];
}

double UT_Noise::gradient(double x, double y, double z) const noexcept
{
    double fx = std::floor(x), fy = std::floor(y), fz = std::floor(z);
    int X = utLattice(fx), Y = utLattice(fy), Z = utLattice(fz);
    x -= fx;
    y -= fy;
    z -= fz;
    double u = utFade(x), v = utFade(y), w = utFade(z);
    const std::uint8_t *p = myPerm;
    int A = p[X] + Y, AA = p[A] + Z, AB = p[A + 1] + Z;
    int B = p[X + 1] + Y, BA = p[B] + Z, BB = p[B + 1] + Z;
    double raw = utLerp(w,
                        utLerp(v, utLerp(u, utGrad(p[AA], x, y, z), utGrad(p[BA], x - 1, y, z)),
                               utLerp(u, utGrad(p[AB], x, y - 1, z), utGrad(p[BB], x - 1, y - 1, z))),
                        utLerp(v, utLerp(u, utGrad(p[AA + 1], x, y, z - 1), utGrad(p[BA + 1], x - 1, y, z - 1)),
                               utLerp(u, utGrad(p[AB + 1], x, y - 1, z - 1), utGrad(p[BB + 1], x - 1, y - 1, z - 1))));
    return raw * theGradientScale;
}

double UT_Noise::cellular(double x, double y, double z) const noexcept
{
    double fx = std::floor(x), fy = std::floor(y), fz = std::floor(z);
    int X = utLattice(fx), Y = utLattice(fy), Z = utLattice(fz);
    double local[3] = {x - fx, y - fy, z - fz};
    const std::uint8_t *p = myPerm;
    // The own cell's point is nearer than sqrt(3) < 2, so cells two steps
    // away may still hold the nearest point but cells three steps away never
    // do. Near cells come first, and a cell is skipped when even its nearest
    // face is farther than the best point so far.
    static constexpr int theSteps[5] = {0, -1, 1, -2, 2};
    double best = 3.0; // squared
    for (int dz : theSteps)
        for (int dy : theSteps)
            for (int dx : theSteps) {
                const int d[3] = {dx, dy, dz};
                double gap = 0.0;
                for (int a = 0; a < 3; ++a) {
                    double g = d[a] > 0 ? d[a] - local[a] : (d[a] < 0 ? local[a] - (d[a] + 1) : 0.0);
                    gap += g * g;
                }
                if (gap >= best)
                    continue;
                int cx = (X + dx) & 255, cy = (Y + dy) & 255, cz = (Z + dz) & 255;
                // Three hashes of the cell, with the axes taken in different
                // orders, place its point strictly inside it.
                double ox = (p[p[p[cx] + cy] + cz] + 0.5) / 256.0;
                double oy = (p[p[p[cy] + cz] + cx] + 0.5) / 256.0;
                double oz = (p[p[p[cz] + cx] + cy] + 0.5) / 256.0;
                double ex = dx + ox - local[0], ey = dy + oy - local[1], ez = dz + oz - local[2];
                best = std::min(best, ex * ex + ey * ey + ez * ez);
            }
    return std::sqrt(best) * theCellularScale;
}

double UT_Noise::evaluate(double x, double y, double z) const noexcept
{
    if (!std::isfinite(x) || !std::isfinite(y) || !std::isfinite(z))
        return 0.0;
    return myType == CELLULAR ? cellular(x, y, z) : gradient(x, y, z);
}

float UT_Noise::noise(float x, float y, float z) const noexcept
{
    return static_cast<float>(evaluate(x, y, z));
}

float UT_Noise::turbulence(float x, float y, float z, int depth, float rough, float atten) const noexcept
{
    int octaves = std::clamp(depth, 1, theMaxOctaves);
    double sum = 0.0, amplitude = 1.0, frequency = 1.0;
    for (int i = 0; i < octaves; ++i) {
        sum += amplitude * evaluate(frequency * x, frequency * y, frequency * z);
        amplitude *= rough;
        frequency *= 2.0;
    }
    if (atten > 0.0f && atten != 1.0f) {
        double bound = utBound(depth, rough);
        if (bound > 0.0 && std::isfinite(bound)) {
            double shaped = bound * std::pow(std::min(std::fabs(sum) / bound, 1.0), static_cast<double>(atten));
            sum = sum < 0.0 ? -shaped : shaped;
        }
    }
    return static_cast<float>(sum);
}

float UT_Noise::turbulenceBound(int depth, float rough) noexcept
{
    return static_cast<float>(utBound(depth, rough));
}
