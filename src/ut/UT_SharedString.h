#ifndef UT_SHAREDSTRING_H
#define UT_SHAREDSTRING_H

#include <cstddef>

/// The process-wide pool of shared texts. Interning gives every equal text
/// one pointer, so holders of interned texts compare them by pointer.
/// Interned texts are never released: the pointers stay valid for the life
/// of the process, static destruction included.
///
/// Safe from any number of threads. Interning belongs to building names
/// (references, keys), not to evaluation, but lookups of texts already in
/// the pool take only a shared lock on one of several shards.
class UT_SharedString
{
public:
    /// The pool's copy of 'text'; null for null. The empty text is interned
    /// like any other.
    static const char *intern(const char *text);

    /// How many distinct texts the pool holds.
    static std::size_t getEntryCount();
};

#endif
