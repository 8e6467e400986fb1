#ifndef UT_THREADSLOTS_H
#define UT_THREADSLOTS_H

#include "UT_Thread.h"

#include <atomic>
#include <cassert>
#include <cstddef>

/// One value per thread: the container behind every per-thread value of the
/// library (evaluation collection and time, expression flags, recursion
/// depth, a channel's evaluation slot, ...).
///
/// The slot of thread number n (UT_Thread numbers, 1-based) is n - 1; a
/// thread argument of 0 means the calling thread. The first 16 slots are held
/// inline; slots beyond them live in an overflow store of blocks that double
/// in size, allocated on first use and published with a compare-and-swap, so
/// a thread can grow the store while others read their own slots. Reading
/// takes no lock; a block, once published, stays until the container dies.
/// The store ends at UT_Thread::theMaxThreadNumber (see refusedSlot).
///
/// A slot belongs to its thread: nothing here synchronises two threads that
/// use the same slot. Slots start value-initialised; the values a finished
/// thread left behind pass to the next thread given its number.
///
/// Align lets containers shared by many threads (the manager's context) pad
/// each slot to a cache line so that threads do not write into each other's
/// lines; containers held by many objects (a channel's slots) keep it small.
template <typename T, std::size_t Align = alignof(T)>
class UT_ThreadSlots
{
public:
    static constexpr int theInlineSlots = 16;

    UT_ThreadSlots() = default;
    ~UT_ThreadSlots()
    {
        Directory *dir = myOverflow.load(std::memory_order_acquire);
        if (!dir)
            return;
        for (auto &block : dir->blocks)
            delete[] block.load(std::memory_order_acquire);
        delete dir;
    }
    UT_ThreadSlots(const UT_ThreadSlots &) = delete;
    UT_ThreadSlots &operator=(const UT_ThreadSlots &) = delete;

    /// The slot of a thread number, or of the calling thread when 0 (or,
    /// defensively, negative).
    T &get(int thread = 0)
    {
        // One test for the common case, an inline slot by number; 0, the
        // negative numbers and the overflow go out of line.
        unsigned index = static_cast<unsigned>(thread) - 1u;
        if (__builtin_expect(index < static_cast<unsigned>(theInlineSlots), 1))
            return myInline[index].value;
        return otherSlot(thread);
    }
    const T &get(int thread = 0) const { return const_cast<UT_ThreadSlots *>(this)->get(thread); }

    /// The slot of a thread number already looked up (1 or more): for code
    /// that reaches several containers with one number.
    T &at(int thread)
    {
        assert(thread > 0);
        int index = thread - 1;
        if (__builtin_expect(index < theInlineSlots, 1))
            return myInline[index].value;
        return overflowSlot(index - theInlineSlots);
    }

    T &operator[](int thread) { return get(thread); }
    const T &operator[](int thread) const { return get(thread); }

    /// Calls f(thread number, value) for every slot that exists: the inline
    /// ones and those of allocated overflow blocks. Not safe against threads
    /// writing their slots meanwhile.
    template <typename F>
    void forEach(F &&f)
    {
        for (int i = 0; i < theInlineSlots; ++i)
            f(i + 1, myInline[i].value);
        Directory *dir = myOverflow.load(std::memory_order_acquire);
        for (int b = 0; dir && b < theBlockCount; ++b) {
            Slot *block = dir->blocks[b].load(std::memory_order_acquire);
            if (!block)
                continue;
            int first = theInlineSlots + blockStart(b);
            for (int i = 0; i < blockSize(b); ++i)
                f(first + i + 1, block[i].value);
        }
    }

private:
    struct alignas(Align) Slot
    {
        T value{};
    };

    // Block b holds 16 << b slots and starts at overflow index 16 * (2^b - 1),
    // so 8 blocks reach thread number 4096, the largest served.
    static constexpr int theBlockCount = 8;
    static_assert((theInlineSlots << theBlockCount) == UT_Thread::theMaxThreadNumber,
                  "the blocks must end at the largest thread number");
    static constexpr int blockSize(int b) { return theInlineSlots << b; }
    static constexpr int blockStart(int b) { return theInlineSlots * ((1 << b) - 1); }

    // The block table is itself allocated on first overflow, so a container
    // that never overflows costs one pointer beyond its inline slots.
    struct Directory
    {
        std::atomic<Slot *> blocks[theBlockCount] = {};
    };

    __attribute__((noinline)) T &otherSlot(int thread)
    {
        int index = (thread > 0 ? thread : UT_Thread::getMySequentialThreadIndex()) - 1;
        if (index < theInlineSlots)
            return myInline[index].value;
        return overflowSlot(index - theInlineSlots);
    }

    // Out of line: the inline slots' path then needs no registers saved.
    __attribute__((noinline)) T &overflowSlot(int overflow)
    {
        if (__builtin_expect(overflow >= blockStart(theBlockCount), 0))
            return refusedSlot();
        unsigned k = static_cast<unsigned>(overflow / theInlineSlots + 1);
        int b = 31 - __builtin_clz(k);
        Directory *dir = myOverflow.load(std::memory_order_acquire);
        if (!dir)
            dir = publish(myOverflow, new Directory);
        Slot *block = dir->blocks[b].load(std::memory_order_acquire);
        if (!block)
            block = publish(dir->blocks[b], new Slot[blockSize(b)]);
        return block[overflow - blockStart(b)].value;
    }

    // Numbers beyond the largest served get a scratch slot of the calling
    // thread instead of a store of millions of slots: memory-safe, but what
    // is written there is shared by every such number and container of this
    // type on the thread. The entry points refuse those numbers first.
    static T &refusedSlot()
    {
        static thread_local T theScratch{};
        return theScratch;
    }

    // Installs 'fresh' unless another thread got there first, in which case
    // theirs is kept and ours freed.
    static Directory *publish(std::atomic<Directory *> &where, Directory *fresh)
    {
        Directory *expected = nullptr;
        if (where.compare_exchange_strong(expected, fresh, std::memory_order_acq_rel))
            return fresh;
        delete fresh;
        return expected;
    }
    static Slot *publish(std::atomic<Slot *> &where, Slot *fresh)
    {
        Slot *expected = nullptr;
        if (where.compare_exchange_strong(expected, fresh, std::memory_order_acq_rel))
            return fresh;
        delete[] fresh;
        return expected;
    }

    Slot myInline[theInlineSlots];
    std::atomic<Directory *> myOverflow{nullptr};
};

#endif
