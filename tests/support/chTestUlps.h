#ifndef CH_TEST_ULPS_H
#define CH_TEST_ULPS_H

// Test support: the distance between two floats in units in the last place.

#include <climits>
#include <cstdint>
#include <cstdlib>
#include <cstring>

inline std::int64_t chTestUlps(float a, float b)
{
    std::int32_t ia, ib;
    std::memcpy(&ia, &a, 4);
    std::memcpy(&ib, &b, 4);
    // Negative floats count down from the sign bit: map them below zero.
    if (ia < 0)
        ia = INT32_MIN - ia;
    if (ib < 0)
        ib = INT32_MIN - ib;
    return std::llabs(static_cast<std::int64_t>(ia) - ib);
}

#endif
