#ifndef UT_ERRORMANAGER_H
#define UT_ERRORMANAGER_H

#include "UT_Error.h"

#include <cstddef>
#include <mutex>
#include <string>
#include <unordered_map>
#include <vector>

/// The process-wide error list that library operations post to and hosts
/// read from. Safe to use from any number of threads.
///
/// Errors are identified by a table name and a code. Each table entry fixes
/// the severity and the text, in which "%s" is replaced by the argument
/// given when posting. The tables "CH" (channel library) and "Common"
/// (shared parsing errors) are built in; hosts may add their own.
///
/// The list keeps at most getCapacity() errors so that an error repeated on
/// every frame cannot exhaust memory; further errors still raise the
/// severity, are counted, and the formatted report says how many were
/// dropped.
class UT_ErrorManager
{
public:
    struct Entry
    {
        int code;
        UT_ErrorSeverity severity;
        const char *text; ///< "%s" marks where the argument goes
    };

    /// The process-wide list.
    static UT_ErrorManager &get();

    UT_ErrorManager();

    /// Adds (or replaces) the entries of a table.
    void registerTable(const char *table, const std::vector<Entry> &entries);

    /// Posts the error 'code' of 'table' with its table severity. A code no
    /// table knows is posted as an error with a generic text.
    void addError(const char *table, int code, const char *argument = nullptr);
    /// Posts with an explicit severity (the table still gives the text).
    void addError(const char *table, int code, const char *argument, UT_ErrorSeverity severity);

    /// The worst severity posted since the last clear.
    UT_ErrorSeverity getSeverity() const;
    std::vector<UT_Error> getErrors() const;
    std::size_t getErrorCount() const;
    /// The texts of the errors of at least 'minimum' severity, one per line,
    /// each prefixed by its severity ("Warning: ..."), plus a line for any
    /// errors dropped at capacity.
    std::string getFormattedErrors(UT_ErrorSeverity minimum = UT_ERROR_MESSAGE) const;
    void clear();

    std::size_t getCapacity() const;
    void setCapacity(std::size_t capacity);

    /// The text an error would have, without posting it.
    std::string formatText(const char *table, int code, const char *argument) const;

    static const char *severityName(UT_ErrorSeverity severity);

private:
    const Entry *findEntry(const std::string &table, int code) const;

    mutable std::mutex myLock;
    std::unordered_map<std::string, std::vector<Entry>> myTables;
    std::vector<UT_Error> myErrors;
    std::size_t myDropped = 0;
    std::size_t myCapacity = 10000;
    UT_ErrorSeverity mySeverity = UT_ERROR_NONE;
};

/// Posts an error to the process-wide list.
void UTaddError(const char *table, int code, const char *argument = nullptr);
/// Posts with an explicit severity (for example a host's fatal error).
void UTaddError(const char *table, int code, const char *argument, UT_ErrorSeverity severity);
/// The worst severity on the process-wide list.
UT_ErrorSeverity UTgetErrorSeverity();
/// Empties the process-wide list.
void UTclearErrors();

#endif
