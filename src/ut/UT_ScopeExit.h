#ifndef UT_SCOPEEXIT_H
#define UT_SCOPEEXIT_H

#include <utility>

/// Runs a function when the scope ends, by return or by exception.
///
/// Every save and restore of per-thread evaluation state goes through this,
/// so that nothing is left behind when an evaluation leaves early:
///
///     int &flags = slots.get(thread);
///     const int saved = flags;
///     flags = 0;
///     UT_ScopeExit restore([&] { flags = saved; });
///
/// The function is held by value and called inline from the destructor, so
/// the guard compiles to the same stores as restoring by hand. It must not
/// throw. A guard can be returned from a function (C++17 elides the copy),
/// but neither copied nor moved.
template <typename F>
class UT_ScopeExit
{
public:
    explicit UT_ScopeExit(F f) noexcept(noexcept(F(std::move(f)))) : myF(std::move(f)) {}
    ~UT_ScopeExit() { myF(); }
    UT_ScopeExit(const UT_ScopeExit &) = delete;
    UT_ScopeExit &operator=(const UT_ScopeExit &) = delete;

private:
    F myF;
};

template <typename F>
UT_ScopeExit(F) -> UT_ScopeExit<F>;

#endif
