#include "CH_ChannelRef.h"

#include <ut/UT_SharedString.h>

const char CH_ChannelRef::theEmptyName[1] = "";

void CH_ChannelRef::setChannelRef(int node_id, const char *name, bool track)
{
    myBits = (myBits & theSpareBit) | (static_cast<std::uint32_t>(node_id) & theIdMask) |
             (track ? theTrackBit : 0u);
    myName = (name && *name) ? UT_SharedString::intern(name) : theEmptyName;
}

std::uint32_t CH_ChannelRef::hash() const
{
    // Name bytes enter as signed char: stored hashes depend on it.
    std::uint32_t h = 0;
    for (const char *p = myName; *p; ++p)
        h = h * 37u + static_cast<std::uint32_t>(static_cast<int>(static_cast<signed char>(*p)));

    // Integer mix of the id so that neighbouring ids spread over buckets.
    std::uint32_t k = static_cast<std::uint32_t>(getNodeId());
    k += ~(k << 16);
    k ^= k >> 5;
    k += k << 3;
    k ^= k >> 13;
    k += ~(k << 9);
    k ^= k >> 17;
    return k ^ h;
}

bool CH_ChannelRef::isLess(const char *a, const char *b)
{
    if (a == b)
        return false;
    if (!a || !b)
        return !a;
    const unsigned char *ua = reinterpret_cast<const unsigned char *>(a);
    const unsigned char *ub = reinterpret_cast<const unsigned char *>(b);
    while (*ua && *ua == *ub)
        ++ua, ++ub;
    return *ua < *ub;
}

bool CH_ChannelRef::isGreater(const char *a, const char *b)
{
    if (a == b)
        return false;
    if (!a || !b)
        return !b;
    const unsigned char *ua = reinterpret_cast<const unsigned char *>(a);
    const unsigned char *ub = reinterpret_cast<const unsigned char *>(b);
    while (*ua && *ua == *ub)
        ++ua, ++ub;
    return *ua > *ub;
}
