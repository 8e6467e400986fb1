#include "UT_Interrupt.h"

#include <vector>

namespace {

// Labels of the operations the calling thread is inside, innermost last.
std::vector<std::string> &utLabels()
{
    static thread_local std::vector<std::string> labels;
    return labels;
}

} // namespace

bool UT_Interrupt::opStart(const char *label)
{
    utLabels().emplace_back(label ? label : "");
    myActive.fetch_add(1, std::memory_order_acq_rel);
    return !isInterrupted();
}

bool UT_Interrupt::opInterrupt(int percent)
{
    if (isInterrupted())
        return true;
    std::shared_ptr<const Progress> progress = std::atomic_load(&myProgress);
    if (progress && progress->callback) {
        const std::vector<std::string> &labels = utLabels();
        const char *label = labels.empty() ? "" : labels.back().c_str();
        if (progress->callback(label, percent, progress->data)) {
            interrupt();
            return true;
        }
    }
    return false;
}

void UT_Interrupt::opEnd()
{
    std::vector<std::string> &labels = utLabels();
    if (labels.empty())
        return; // unbalanced opEnd: ignore rather than corrupt the count
    labels.pop_back();
    if (myActive.fetch_sub(1, std::memory_order_acq_rel) == 1)
        clearInterrupt();
}

void UT_Interrupt::setProgressCallback(ProgressCallback callback, void *data)
{
    std::shared_ptr<const Progress> progress;
    if (callback)
        progress = std::make_shared<const Progress>(Progress{callback, data});
    std::atomic_store(&myProgress, progress);
}

UT_Interrupt *UTgetInterrupt()
{
    static UT_Interrupt *interrupt = new UT_Interrupt;
    return interrupt;
}
