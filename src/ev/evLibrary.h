#ifndef EV_LIBRARY_H
#define EV_LIBRARY_H

// The standard library's registration, called by ev_InitFloat and
// ev_InitString. Each registers its records every time it is called; the
// Init functions make sure that happens once.

void evRegisterFloatLibrary();
void evRegisterStringLibrary();

#include <cstddef>

/// The longest string one operation may make (joining with '+', the string
/// functions, host functions, expansion), so that a short text cannot grow
/// a string, or a pile of them, without bound.
constexpr std::size_t evMaxStringLength = std::size_t(1) << 24;
/// The error text of a result over that length (reported as error 9).
constexpr const char *evStringTooLongText = "String result longer than 16777216 bytes";

#endif
