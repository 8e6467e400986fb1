#include "evRegistry.h"

#include <ut/UT_Thread.h>
#include <ut/UT_ThreadSlots.h>

#include <cstdio>
#include <mutex>

std::atomic<evThreadStates *> evTheThreadStates{nullptr};

namespace {

// A thread that ends leaves nothing to the next thread given its number:
// an error it left pending would otherwise fail that thread's first
// evaluation check.
void evForgetEndingThread(int thread) noexcept
{
    evThreadStates *states = evTheThreadStates.load(std::memory_order_acquire);
    if (!states)
        return;
    evThreadState &state = states->get(thread);
    state.error = 0;
    state.depth = 0;
    state.custom.clear();
    state.clearPosition();
    state.asides.clear();
}

} // namespace

__attribute__((noinline)) evThreadState &evGetFirstThreadState(int thread)
{
    // Leaked on purpose (threads may evaluate while the process exits).
    static evThreadStates &states = [] () -> evThreadStates & {
        auto *made = new evThreadStates;
        evTheThreadStates.store(made, std::memory_order_release);
        UT_Thread::addEndHook(evForgetEndingThread);
        return *made;
    }();
    return states.get(thread);
}

evRegistry &evRegistry::get()
{
    // Leaked on purpose: compiled expressions hold slot pointers until the
    // very end of the process.
    static evRegistry *registry = new evRegistry;
    return *registry;
}

void evRegistry::addFunction(EV_FUNCTION *func)
{
    if (!func)
        return;
    func->setUserFunction(userFunctions.load(std::memory_order_relaxed));
    std::unique_lock<std::shared_mutex> guard(myLock);
    std::unique_ptr<evFuncSlot> &slot = mySlots[func->getName()];
    if (!slot) {
        slot = std::make_unique<evFuncSlot>();
        slot->name = func->getName();
    }
    slot->record.store(func, std::memory_order_release);
}

evFuncSlot *evRegistry::findSlot(const std::string &name) const
{
    std::shared_lock<std::shared_mutex> guard(myLock);
    auto it = mySlots.find(name);
    return it == mySlots.end() ? nullptr : it->second.get();
}

void evRegistry::append(TypeArray &array, std::atomic<int> &count, EV_TYPEDEF *type)
{
    if (!type)
        return;
    std::unique_lock<std::shared_mutex> guard(myLock);
    int n = count.load(std::memory_order_relaxed);
    for (int i = 0; i < n; ++i)
        if (array[i].load(std::memory_order_relaxed) == type)
            return; // already added
    if (n >= theMaxTypes) {
        std::fprintf(stderr, "Expression engine: too many types, \"%s\" ignored\n", type->name);
        return;
    }
    array[n].store(type, std::memory_order_relaxed);
    count.store(n + 1, std::memory_order_release);
}


