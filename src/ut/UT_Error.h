#ifndef UT_ERROR_H
#define UT_ERROR_H

#include <string>

/// How bad a posted error is. The list's severity is the worst it holds;
/// writers refuse to save once it reaches UT_ERROR_FATAL.
enum UT_ErrorSeverity
{
    UT_ERROR_NONE = 0,
    UT_ERROR_MESSAGE = 1,
    UT_ERROR_WARNING = 2,
    UT_ERROR_ABORT = 3, ///< an error: the operation failed
    UT_ERROR_FATAL = 4
};

/// One posted error: the table and code that identify it, the argument that
/// completes its text, its severity and the formatted text.
struct UT_Error
{
    std::string table;
    int code = 0;
    UT_ErrorSeverity severity = UT_ERROR_NONE;
    std::string argument;
    std::string text;
};

#endif
