#ifndef EV_COMPILER_H
#define EV_COMPILER_H

#include "evProgram.h"

#include <memory>

/// Compiles a text into a program. Always returns a program: on failure it
/// holds the error number (and no code) so that evaluation can report it.
/// 'flags' receives the flag bits known at compile time (EV_FLAG_MATCH of
/// called functions). Re-entrant: evaluation may compile texts.
std::unique_ptr<evProgram> evCompile(const char *text, unsigned &flags, int thread);

#endif
