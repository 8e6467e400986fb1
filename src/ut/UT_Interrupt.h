#ifndef UT_INTERRUPT_H
#define UT_INTERRUPT_H

#include <atomic>
#include <memory>
#include <mutex>
#include <string>

/// Interruption and progress of long operations.
///
/// A long loop brackets itself with opStart/opEnd and polls opInterrupt
/// now and then. A host (a UI's escape key, a test) calls interrupt() from any
/// thread; every running operation then sees the request at its next poll.
/// The request stays raised until the outermost operation ends (so nested
/// loops all unwind) or until clearInterrupt(). A request made while nothing
/// runs interrupts the next operation at once.
///
/// A host may install a progress callback: it is called with the label of
/// the innermost operation of the polling thread and a percentage (or -1
/// when the loop does not know one) at each poll, and returns true to ask
/// for an interruption.
class UT_Interrupt
{
public:
    using ProgressCallback = bool (*)(const char *label, int percent, void *data);

    /// Starts an operation; returns false when an interruption is already
    /// requested (the caller should skip its work, but must still opEnd).
    bool opStart(const char *label = nullptr);
    /// Polls; returns true when the operation should stop.
    bool opInterrupt(int percent = -1);
    /// Ends the innermost operation of this thread.
    void opEnd();

    /// Requests an interruption of the running operations.
    void interrupt() { myRequested.store(true, std::memory_order_release); }
    void clearInterrupt() { myRequested.store(false, std::memory_order_release); }
    bool isInterrupted() const { return myRequested.load(std::memory_order_acquire); }

    /// Operations running now, over all threads.
    int getActiveOperations() const { return myActive.load(std::memory_order_acquire); }

    /// Installs (or, with null, removes) the progress callback.
    void setProgressCallback(ProgressCallback callback, void *data);

private:
    struct Progress
    {
        ProgressCallback callback;
        void *data;
    };

    std::atomic<bool> myRequested{false};
    std::atomic<int> myActive{0};
    std::shared_ptr<const Progress> myProgress;
};

/// The process-wide interrupt object.
UT_Interrupt *UTgetInterrupt();

/// Brackets a scope as an interruptible operation.
class UT_AutoInterrupt
{
public:
    explicit UT_AutoInterrupt(const char *label, UT_Interrupt *interrupt = UTgetInterrupt())
        : myInterrupt(interrupt), myStarted(interrupt->opStart(label)) {}
    ~UT_AutoInterrupt() { myInterrupt->opEnd(); }
    UT_AutoInterrupt(const UT_AutoInterrupt &) = delete;
    UT_AutoInterrupt &operator=(const UT_AutoInterrupt &) = delete;

    /// False when the operation was interrupted before it started.
    bool wasStarted() const { return myStarted; }
    bool wasInterrupted(int percent = -1) { return myInterrupt->opInterrupt(percent); }

private:
    UT_Interrupt *myInterrupt;
    bool myStarted;
};

#endif
