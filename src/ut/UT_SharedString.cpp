#include "UT_SharedString.h"

#include <cstring>
#include <functional>
#include <memory>
#include <mutex>
#include <shared_mutex>
#include <string_view>
#include <unordered_set>
#include <vector>

namespace {

// Texts live in append-only blocks and the set only indexes them, so a
// lookup needs no std::string (no allocation) and nothing ever moves.
class utStringShard
{
public:
    const char *find(std::string_view text, std::size_t hash) const
    {
        std::shared_lock<std::shared_mutex> lock(myLock);
        return findLocked(text, hash);
    }

    const char *insert(std::string_view text, std::size_t hash)
    {
        std::unique_lock<std::shared_mutex> lock(myLock);
        // Another thread may have added it between our two locks.
        if (const char *found = findLocked(text, hash))
            return found;
        char *copy = allocate(text.size() + 1);
        std::memcpy(copy, text.data(), text.size());
        copy[text.size()] = '\0';
        myIndex.insert(utKey{std::string_view(copy, text.size()), hash});
        return copy;
    }

    std::size_t size() const
    {
        std::shared_lock<std::shared_mutex> lock(myLock);
        return myIndex.size();
    }

private:
    // The hash travels with the key so that the set does not hash the text
    // a second time.
    struct utKey
    {
        std::string_view text;
        std::size_t hash;
        bool operator==(const utKey &b) const { return text == b.text; }
    };
    struct utKeyHash
    {
        std::size_t operator()(const utKey &k) const { return k.hash; }
    };

    const char *findLocked(std::string_view text, std::size_t hash) const
    {
        auto it = myIndex.find(utKey{text, hash});
        return it == myIndex.end() ? nullptr : it->text.data();
    }

    char *allocate(std::size_t bytes)
    {
        static constexpr std::size_t theBlockSize = 4096;
        // Long texts get a block of their own rather than wasting the rest
        // of the current one.
        if (bytes > theBlockSize / 4) {
            myBlocks.push_back(std::make_unique<char[]>(bytes));
            return myBlocks.back().get();
        }
        if (!myFree || myFreeBytes < bytes) {
            myBlocks.push_back(std::make_unique<char[]>(theBlockSize));
            myFree = myBlocks.back().get();
            myFreeBytes = theBlockSize;
        }
        char *result = myFree;
        myFree += bytes;
        myFreeBytes -= bytes;
        return result;
    }

    mutable std::shared_mutex myLock;
    std::unordered_set<utKey, utKeyHash> myIndex;
    std::vector<std::unique_ptr<char[]>> myBlocks;
    char *myFree = nullptr;
    std::size_t myFreeBytes = 0;
};

// Sharding keeps threads that intern different names off each other's
// exclusive locks.
constexpr std::size_t theShardCount = 16;

struct utStringPool
{
    utStringShard shards[theShardCount];

    utStringShard &shardFor(std::size_t hash)
    {
        // The set buckets by the low bits; pick the shard from others.
        return shards[(hash >> 24) % theShardCount];
    }
};

utStringPool &pool()
{
    // Never destroyed: interned pointers must outlive every static that
    // holds one, whatever the order of static destruction.
    static utStringPool *thePool = new utStringPool;
    return *thePool;
}

} // namespace

const char *UT_SharedString::intern(const char *text)
{
    if (!text)
        return nullptr;
    std::string_view view(text);
    std::size_t hash = std::hash<std::string_view>()(view);
    utStringShard &shard = pool().shardFor(hash);
    if (const char *found = shard.find(view, hash))
        return found;
    return shard.insert(view, hash);
}

std::size_t UT_SharedString::getEntryCount()
{
    std::size_t count = 0;
    for (const utStringShard &shard : pool().shards)
        count += shard.size();
    return count;
}
