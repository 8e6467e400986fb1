#include "CH_EvalBoundary.h"

#include <ut/UT_ErrorManager.h>

#include <new>
#include <string>

int CH_EvalBoundary::refuseThread(int thread) noexcept
{
    // A calling thread numbered beyond the slots is refused too: its slot
    // would be the scratch one every such number shares.
    try {
        UTaddError("CH", 14, std::to_string(thread).c_str());
    } catch (...) {
        // Refused all the same, without the message.
    }
    return 0;
}

void CH_EvalBoundary::chStaleError::setAside(int thread) noexcept
{
    new (mySaved) EV_ErrorAside(ev_SetErrorAside(thread));
    myThread = thread;
}

void CH_EvalBoundary::chStaleError::putBack() noexcept
{
    EV_ErrorAside &saved = *std::launder(reinterpret_cast<EV_ErrorAside *>(mySaved));
    if (!ev_GetErrNo(myThread))
        ev_TakeErrorBack(std::move(saved), myThread);
    saved.~EV_ErrorAside();
}

void CH_EvalBoundary::exceptionCaught(int thread) noexcept
{
    const char *text = "Evaluation failed with an exception";
    try {
        throw;
    } catch (const std::bad_alloc &) {
        text = "Out of memory during evaluation";
    } catch (...) {
    }
    try {
        ev_SetCustomErrorMessage(text, thread);
    } catch (...) {
        // No memory even for the text: the number alone still fails the
        // evaluation.
        try {
            ev_SetErrNo(EV_ERRCUSTOM, thread);
        } catch (...) {
        }
    }
}
