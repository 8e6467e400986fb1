#ifndef CH_EVALBOUNDARY_H
#define CH_EVALBOUNDARY_H

#include <ev/EV_Engine.h>
#include <ut/UT_ScopeExit.h>
#include <ut/UT_Thread.h>

/// What the public evaluation entry points (CH_Collection::evaluate and
/// evaluateString, CH_Channel::evaluate and evaluateString, and the
/// manager's evaluate, evaluateString and expandString) do at the library
/// boundary: refuse thread numbers out of range, set aside an error left on
/// the thread by an earlier evaluation, and turn an exception into an
/// engine error. See docs/channels.md.
class CH_EvalBoundary
{
public:
    /// Resolves 0 (or a negative number) to the calling thread's number.
    /// Beyond UT_Thread::theMaxThreadNumber, posts "CH" error 14 and gives
    /// 0: the caller then does nothing.
    static int acceptThread(int thread)
    {
        if (thread <= 0) // negative numbers have always meant the calling thread too
            thread = UT_Thread::getMySequentialThreadIndex();
        if (__builtin_expect(thread <= UT_Thread::theMaxThreadNumber, 1))
            return thread;
        return refuseThread(thread);
    }

    /// For a catch (...) block: makes the exception being handled the
    /// thread's engine error (EV_ERRCUSTOM, "Out of memory during
    /// evaluation" or "Evaluation failed with an exception"). Never throws.
    static void exceptionCaught(int thread) noexcept;

    /// Clears the error an earlier evaluation left pending on the thread,
    /// so that it neither stops this one nor is reported as its own; the
    /// guard returned puts it back at scope end unless this evaluation left
    /// an error of its own there.
    [[nodiscard]] static auto setAsideError(int thread)
    {
        const int stale = ev_GetErrNo(thread);
        if (stale)
            ev_SetErrNo(0, thread);
        return UT_ScopeExit([stale, thread] {
            if (stale && !ev_GetErrNo(thread))
                ev_SetErrNo(stale, thread);
        });
    }

private:
    /// Posts "CH" error 14 for the number; gives 0.
    static int refuseThread(int thread);
};

#endif
