#include "UT_ErrorManager.h"

#include <algorithm>

namespace {

// Texts without "%s" get ": argument" appended when an argument is given.
const std::vector<UT_ErrorManager::Entry> theChannelTable = {
    {0, UT_ERROR_MESSAGE, "%s"},
    {2, UT_ERROR_WARNING, "Unknown segment option \"%s\""},
    {3, UT_ERROR_ABORT, "Not a channel file: the header does not start with ACHN or BCHN"},
    {4, UT_ERROR_ABORT, "Unable to read channel file"},
    {5, UT_ERROR_ABORT, "No node \"%s\" to load channels into"},
    {6, UT_ERROR_ABORT, "Failed to load a channel block"},
    {8, UT_ERROR_ABORT, "Channel file header: missing or bad start time"},
    {9, UT_ERROR_ABORT, "Channel file header: missing or bad end time"},
    {10, UT_ERROR_ABORT, "Channel file header: expected \"=\""},
    {11, UT_ERROR_ABORT, "Bad unit exponent in \"%s\""},
    {12, UT_ERROR_ABORT, "Unknown unit \"%s\""},
    {13, UT_ERROR_WARNING, "Unknown expression language \"%s\""},
    {14, UT_ERROR_ABORT, "Thread number %s is out of range (1 to 4096, or 0 for the calling thread)"},
};

const std::vector<UT_ErrorManager::Entry> theCommonTable = {
    {7, UT_ERROR_WARNING, "Skipped a packet of a foreign class"},
    {8, UT_ERROR_WARNING, "Skipped an unknown packet"},
    {10, UT_ERROR_ABORT, "Syntax error: missing or empty word"},
    {11, UT_ERROR_ABORT, "Syntax error: expected \"%s\""},
};

std::string utSubstitute(const char *text, const char *argument)
{
    std::string out(text);
    std::string arg(argument ? argument : "");
    std::size_t at = out.find("%s");
    if (at != std::string::npos)
        out.replace(at, 2, arg);
    else if (!arg.empty())
        out += ": " + arg;
    return out;
}

} // namespace

UT_ErrorManager &UT_ErrorManager::get()
{
    // Leaked on purpose: errors may be posted during static destruction.
    static UT_ErrorManager *manager = new UT_ErrorManager;
    return *manager;
}

UT_ErrorManager::UT_ErrorManager()
{
    myTables["CH"] = theChannelTable;
    myTables["Common"] = theCommonTable;
}

void UT_ErrorManager::registerTable(const char *table, const std::vector<Entry> &entries)
{
    std::lock_guard<std::mutex> guard(myLock);
    std::vector<Entry> &dest = myTables[table ? table : ""];
    for (const Entry &e : entries) {
        auto it = std::find_if(dest.begin(), dest.end(), [&](const Entry &d) { return d.code == e.code; });
        if (it != dest.end())
            *it = e;
        else
            dest.push_back(e);
    }
}

const UT_ErrorManager::Entry *UT_ErrorManager::findEntry(const std::string &table, int code) const
{
    auto t = myTables.find(table);
    if (t == myTables.end())
        return nullptr;
    for (const Entry &e : t->second)
        if (e.code == code)
            return &e;
    return nullptr;
}

std::string UT_ErrorManager::formatText(const char *table, int code, const char *argument) const
{
    std::string name(table ? table : "");
    std::lock_guard<std::mutex> guard(myLock);
    if (const Entry *e = findEntry(name, code))
        return utSubstitute(e->text, argument);
    std::string generic = "Error " + std::to_string(code) + " of table \"" + name + "\"";
    return utSubstitute(generic.c_str(), argument);
}

void UT_ErrorManager::addError(const char *table, int code, const char *argument)
{
    UT_ErrorSeverity severity = UT_ERROR_ABORT;
    {
        std::lock_guard<std::mutex> guard(myLock);
        if (const Entry *e = findEntry(table ? table : "", code))
            severity = e->severity;
    }
    addError(table, code, argument, severity);
}

void UT_ErrorManager::addError(const char *table, int code, const char *argument,
                               UT_ErrorSeverity severity)
{
    UT_Error error;
    error.table = table ? table : "";
    error.code = code;
    error.severity = severity;
    error.argument = argument ? argument : "";
    error.text = formatText(table, code, argument);

    std::lock_guard<std::mutex> guard(myLock);
    mySeverity = std::max(mySeverity, severity);
    if (myErrors.size() < myCapacity)
        myErrors.push_back(std::move(error));
    else
        ++myDropped;
}

UT_ErrorSeverity UT_ErrorManager::getSeverity() const
{
    std::lock_guard<std::mutex> guard(myLock);
    return mySeverity;
}

std::vector<UT_Error> UT_ErrorManager::getErrors() const
{
    std::lock_guard<std::mutex> guard(myLock);
    return myErrors;
}

std::size_t UT_ErrorManager::getErrorCount() const
{
    std::lock_guard<std::mutex> guard(myLock);
    return myErrors.size() + myDropped;
}

const char *UT_ErrorManager::severityName(UT_ErrorSeverity severity)
{
    switch (severity) {
    case UT_ERROR_NONE: return "None";
    case UT_ERROR_MESSAGE: return "Message";
    case UT_ERROR_WARNING: return "Warning";
    case UT_ERROR_ABORT: return "Error";
    case UT_ERROR_FATAL: return "Fatal error";
    }
    return "Error";
}

std::string UT_ErrorManager::getFormattedErrors(UT_ErrorSeverity minimum) const
{
    std::lock_guard<std::mutex> guard(myLock);
    std::string out;
    for (const UT_Error &e : myErrors) {
        if (e.severity < minimum)
            continue;
        out += severityName(e.severity);
        out += ": ";
        out += e.text;
        out += '\n';
    }
    if (myDropped)
        out += std::to_string(myDropped) + " more error(s) not listed\n";
    return out;
}

void UT_ErrorManager::clear()
{
    std::lock_guard<std::mutex> guard(myLock);
    myErrors.clear();
    myDropped = 0;
    mySeverity = UT_ERROR_NONE;
}

void UT_ErrorManager::setCapacity(std::size_t capacity)
{
    std::lock_guard<std::mutex> guard(myLock);
    myCapacity = capacity;
    if (myErrors.size() > capacity) {
        myDropped += myErrors.size() - capacity;
        myErrors.resize(capacity);
    }
}

void UTaddError(const char *table, int code, const char *argument)
{
    UT_ErrorManager::get().addError(table, code, argument);
}

void UTaddError(const char *table, int code, const char *argument, UT_ErrorSeverity severity)
{
    UT_ErrorManager::get().addError(table, code, argument, severity);
}

UT_ErrorSeverity UTgetErrorSeverity()
{
    return UT_ErrorManager::get().getSeverity();
}

void UTclearErrors()
{
    UT_ErrorManager::get().clear();
}

std::size_t UT_ErrorManager::getCapacity() const
{
    std::lock_guard<std::mutex> guard(myLock);
    return myCapacity;
}
