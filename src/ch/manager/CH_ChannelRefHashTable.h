#ifndef CH_CHANNELREFHASHTABLE_H
#define CH_CHANNELREFHASHTABLE_H

#include <ch/manager/CH_HashChRef.h>

#include <unordered_map>

/// A table from channel reference to one unsigned word (the scope table
/// keeps a flag word per reference, the groups keep 0). Keys ignore the
/// track flag; the first reference inserted for a key is the one kept.
class CH_ChannelRefHashTable
{
public:
    using Map = std::unordered_map<CH_HashChRef, unsigned, CH_HashChRef::Hasher>;
    using iterator = Map::iterator;
    using const_iterator = Map::const_iterator;

    int entries() const { return static_cast<int>(myMap.size()); }
    bool contains(const CH_ChannelRef &ref) const { return myMap.count(CH_HashChRef(ref)) != 0; }
    /// The word of a reference, or null when absent.
    const unsigned *find(const CH_ChannelRef &ref) const
    {
        auto it = myMap.find(CH_HashChRef(ref));
        return it == myMap.end() ? nullptr : &it->second;
    }
    unsigned *find(const CH_ChannelRef &ref)
    {
        auto it = myMap.find(CH_HashChRef(ref));
        return it == myMap.end() ? nullptr : &it->second;
    }
    /// Adds the entry, or replaces the word of an existing one.
    void set(const CH_ChannelRef &ref, unsigned value) { myMap[CH_HashChRef(ref)] = value; }
    /// True when the reference had an entry.
    bool remove(const CH_ChannelRef &ref) { return myMap.erase(CH_HashChRef(ref)) != 0; }
    void clear() { myMap.clear(); }

    iterator begin() { return myMap.begin(); }
    iterator end() { return myMap.end(); }
    const_iterator begin() const { return myMap.begin(); }
    const_iterator end() const { return myMap.end(); }

    using Filter = bool (*)(const CH_ChannelRef &ref, unsigned value);
    using Callback = void (*)(const CH_ChannelRef &ref, void *data);
    /// Deletes the entries of a node, except those the filter (if any)
    /// refuses; the callback (if any) sees each entry before it goes.
    /// Returns the number deleted.
    int deleteSymbolsWithNodeId(int node_id, Filter filter, Callback callback, void *data)
    {
        int n = 0;
        for (auto it = myMap.begin(); it != myMap.end();)
        {
            const CH_ChannelRef &ref = it->first.getRef();
            if (ref.getNodeId() != node_id || (filter && !filter(ref, it->second)))
            {
                ++it;
                continue;
            }
            if (callback)
                callback(ref, data);
            it = myMap.erase(it);
            ++n;
        }
        return n;
    }

private:
    Map myMap;
};

#endif
