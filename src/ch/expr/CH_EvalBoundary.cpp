#include "CH_EvalBoundary.h"

#include <ut/UT_ErrorManager.h>

#include <new>
#include <string>

int CH_EvalBoundary::refuseThread(int thread)
{
    UTaddError("CH", 14, std::to_string(thread).c_str());
    return 0;
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
        ev_SetErrNo(EV_ERRCUSTOM, thread);
    }
}
