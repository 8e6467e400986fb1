#ifndef CH_EVALBOUNDARY_H
#define CH_EVALBOUNDARY_H

#include <ev/EV_Engine.h>
#include <ev/evRegistry.h>
#include <ut/UT_Thread.h>

#include <utility>

/// Internal to the library (it reads the engine's thread state inline), so
/// not installed. What every public evaluation entry point does at the
/// library boundary (CH_Collection::evaluate and evaluateString; CH_Channel::evaluate, point
/// and range, evaluateString, evaluateSegment, evaluateStringSegment and
/// sampleValueSlope; the manager's evaluate, evaluateString, expandString,
/// lookupVariable and lookupExpression), through run(): accept the thread
/// number, set aside an error left on the thread by an earlier evaluation,
/// and turn an exception into an engine error. See docs/channels.md.
class CH_EvalBoundary
{
public:
    /// Resolves 0 (or a negative number) to the calling thread's number.
    /// A number beyond UT_Thread::theMaxThreadNumber, given or the calling
    /// thread's own, posts "CH" error 14 and gives 0: the caller then does
    /// nothing.
    static int acceptThread(int thread)
    {
        // Inline, since most callers pass 0: one read of the thread's number
        // and one test in the common case.
        if (thread <= 0) // negative numbers have always meant the calling thread too
            thread = UT_Thread::getMySequentialThreadIndex();
        if (__builtin_expect(thread <= UT_Thread::theMaxThreadNumber, 1))
            return thread;
        return refuseThread(thread);
    }
    /// An entry point's work: accepts the thread (thread is set to the
    /// number accepted), sets the thread's pending error aside and gives
    /// work(). A refused thread, or an exception (made the thread's error),
    /// gives fail() instead, which must not throw.
    template <typename Work, typename Fail>
    static auto run(int &thread, Work &&work, Fail &&fail) -> decltype(work())
    {
        thread = acceptThread(thread);
        if (__builtin_expect(thread == 0, 0))
            return fail();
        chStaleError stale(thread); // still there when an exception becomes the error
        try {
            return work();
        } catch (...) {
            exceptionCaught(thread);
            return fail();
        }
    }

    /// For a catch (...) block: makes the exception being handled the
    /// thread's engine error (EV_ERRCUSTOM, "Out of memory during
    /// evaluation" or "Evaluation failed with an exception"). Never throws.
    static void exceptionCaught(int thread) noexcept;

private:
    /// Clears the error an earlier evaluation left pending on the thread,
    /// whole (number, text, position), so that it neither stops this one
    /// nor is reported as its own; puts it back at scope end unless this
    /// evaluation left an error of its own.
    class chStaleError
    {
    public:
        // Most evaluations start with no error pending: they pay one test
        // here and one at the end.
        explicit chStaleError(int thread) noexcept
        {
            if (__builtin_expect(pendingError(thread) != 0, 0))
                setAside(thread);
        }
        ~chStaleError()
        {
            if (__builtin_expect(myThread != 0, 0))
                putBack();
        }
        chStaleError(const chStaleError &) = delete;
        chStaleError &operator=(const chStaleError &) = delete;

    private:
        void setAside(int thread) noexcept;
        void putBack() noexcept;
        // The engine's own inline read: this is on every evaluation's path.
        static int pendingError(int thread) noexcept { return evPendingError(thread); }

        int myThread = 0; // the thread whose error is set aside, if any
        alignas(EV_ErrorAside) unsigned char mySaved[sizeof(EV_ErrorAside)];
    };

    /// Posts "CH" error 14 for a number beyond the largest; gives 0.
    static int refuseThread(int thread) noexcept;
};

#endif
