#ifndef CH_CHANNELREF_H
#define CH_CHANNELREF_H

#include <cstdint>

class CH_HashChRef;

/// Names a channel by node id, name and track flag instead of by pointer,
/// so that editor state survives channels being deleted, re-created or
/// loaded. What the node ids number is the host's business.
///
/// The id, the track flag and one spare bit share one 32-bit word:
///   bits 0-29  node id, signed (read back sign-extended; -1 = no node)
///   bit  30    track flag
///   bit  31    spare: no setter touches it, and assignment keeps the
///              target's (the copy constructor copies the whole word)
/// The name is never null. Non-empty names are interned, so equal names
/// share one pointer and comparing pointers compares texts.
class CH_ChannelRef
{
public:
    CH_ChannelRef() : myBits(theIdMask), myName(theEmptyName) {}
    CH_ChannelRef(int node_id, const char *name, bool track) : myBits(0), myName(theEmptyName)
    {
        setChannelRef(node_id, name, track);
    }
    CH_ChannelRef(const CH_ChannelRef &) = default;
    ~CH_ChannelRef() = default;

    CH_ChannelRef &operator=(const CH_ChannelRef &src)
    {
        myBits = (myBits & theSpareBit) | (src.myBits & ~theSpareBit);
        myName = src.myName;
        return *this;
    }

    /// Keeps only the low 30 bits of node_id. A null or empty name gives the
    /// shared empty name; any other name is interned.
    void setChannelRef(int node_id, const char *name, bool track);
    /// Node id -1, no track, empty name (the spare bit is kept).
    void clear()
    {
        myBits = (myBits & theSpareBit) | theIdMask;
        myName = theEmptyName;
    }

    int getNodeId() const
    {
        // Flipping bit 29 and subtracting it again sign-extends without
        // relying on the right shift of negative numbers.
        return static_cast<int>((myBits & theIdMask) ^ theIdSignBit) - static_cast<int>(theIdSignBit);
    }
    void setNodeId(int node_id)
    {
        myBits = (myBits & ~theIdMask) | (static_cast<std::uint32_t>(node_id) & theIdMask);
    }
    const char *getName() const { return myName; }
    bool isTrack() const { return (myBits & theTrackBit) != 0; }

    bool operator==(const CH_ChannelRef &b) const
    {
        return ((myBits ^ b.myBits) & ~theSpareBit) == 0 && myName == b.myName;
    }
    bool operator!=(const CH_ChannelRef &b) const { return !(*this == b); }

    /// Node id first, then name as unsigned bytes. The track flag takes no
    /// part: references differing only in it are neither == nor ordered.
    bool operator<(const CH_ChannelRef &b) const
    {
        int a_id = getNodeId(), b_id = b.getNodeId();
        if (a_id != b_id)
            return a_id < b_id;
        return isLess(myName, b.myName);
    }
    bool operator>(const CH_ChannelRef &b) const
    {
        int a_id = getNodeId(), b_id = b.getNodeId();
        if (a_id != b_id)
            return a_id > b_id;
        return isGreater(myName, b.myName);
    }

    /// Ignores the track flag, like the ordering.
    std::uint32_t hash() const;

private:
    friend class CH_HashChRef; // keys compare names the same way

    static bool isLess(const char *a, const char *b);
    static bool isGreater(const char *a, const char *b);

    static constexpr std::uint32_t theIdMask = 0x3fffffffu;
    static constexpr std::uint32_t theIdSignBit = 1u << 29;
    static constexpr std::uint32_t theTrackBit = 1u << 30;
    static constexpr std::uint32_t theSpareBit = 1u << 31;

    // One definition in the library so every empty name is the same pointer.
    static const char theEmptyName[1];

    std::uint32_t myBits;
    const char *myName;
};

#endif
