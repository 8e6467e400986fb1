#ifndef CH_HASHCHREF_H
#define CH_HASHCHREF_H

#include <ch/manager/CH_ChannelRef.h>

#include <cstddef>
#include <cstdint>

/// A reference as a hash-table key: the reference and its hash, computed
/// once. Keys ignore the track flag, so references that differ only in it
/// are one key.
class CH_HashChRef
{
public:
    explicit CH_HashChRef(const CH_ChannelRef &ref) : myRef(ref), myHash(ref.hash()) {}

    const CH_ChannelRef &getRef() const { return myRef; }
    std::uint32_t hash() const { return myHash; }

    /// -1, 0 or 1: node id first, then the name bytes.
    int compare(const CH_HashChRef &b) const
    {
        int a_id = myRef.getNodeId(), b_id = b.myRef.getNodeId();
        if (a_id < b_id || (a_id == b_id && CH_ChannelRef::isLess(myRef.myName, b.myRef.myName)))
            return -1;
        if (a_id > b_id)
            return 1;
        return CH_ChannelRef::isGreater(myRef.myName, b.myRef.myName) ? 1 : 0;
    }
    bool operator==(const CH_HashChRef &b) const
    {
        // Interned names: equal texts are equal pointers.
        return myRef.getNodeId() == b.myRef.getNodeId() && myRef.myName == b.myRef.myName;
    }

    struct Hasher
    {
        std::size_t operator()(const CH_HashChRef &k) const { return k.myHash; }
    };

private:
    CH_ChannelRef myRef;
    std::uint32_t myHash;
};

#endif
