#ifndef UT_THREAD_H
#define UT_THREAD_H

/// Thread numbering for the per-thread slots of the library.
///
/// Every thread that asks gets a sequential number, starting at 1. The
/// number is stable for the life of the thread and never handed to another
/// thread while it lives; when a thread ends its number returns to a pool
/// and the next new thread takes the smallest free one, so numbers stay
/// small (and in the inline slots) for programs that start and stop worker
/// threads repeatedly.
class UT_Thread
{
public:
    /// The largest thread number the per-thread slots serve. Entry points
    /// that take a thread number refuse larger ones (a host passing an OS
    /// thread id, say) instead of growing every slot container to match.
    static constexpr int theMaxThreadNumber = 4096;

    /// This thread's number (1-based). The first call on a thread assigns
    /// it; later calls are a single thread-local read.
    static int getMySequentialThreadIndex()
    {
        int index = theThreadIndex;
        if (__builtin_expect(index != 0, 1))
            return index;
        return assignThreadIndex();
    }

    /// The highest number handed out so far: an upper bound of the numbers
    /// of the live threads.
    static int getHighestThreadIndex();

    /// The number of hardware threads, at least 1.
    static int getNumProcessors();

    /// Registers a function that every numbered thread calls with its
    /// number as it ends, before the number goes to another thread: for
    /// per-thread state that must not pass to the next thread given the
    /// number (an error left pending, say). Up to theMaxEndHooks hooks;
    /// false when full. A hook must not throw.
    static constexpr int theMaxEndHooks = 8;
    static bool addEndHook(void (*hook)(int thread));

private:
    static int assignThreadIndex();

    // A plain __thread int (no dynamic initialisation, so no TLS wrapper
    // call) in the initial-exec model keeps the hot path to one load, even
    // when the reader is a program linked against the shared library.
    static __thread int theThreadIndex __attribute__((tls_model("initial-exec")));
};

#endif
