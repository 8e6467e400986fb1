// The manager's side of expression evaluation: global variables, string
// expansion and one-shot evaluation of texts.
#include "CH_Manager.h"

#include <ch/expr/CH_EvalBoundary.h>
#include <ch/expr/CH_ExprDefine.h>
#include <ch/expr/CH_Expression.h>
#include <ch/io/CH_Collection.h>

#include <ev/EV_Engine.h>
#include <ut/UT_ExprVariableScan.h>
#include <ut/UT_ScopeExit.h>
#include <ut/UT_WorkBuffer.h>

#include <climits>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sstream>

namespace {

const CH_LocalVariable theGlobalVariables[] = {
    {"F", 0, CH_LocalVariable::TIME_DEP | CH_LocalVariable::INTEGER},
    {"FF", 1, CH_LocalVariable::TIME_DEP},
    {"T", 2, CH_LocalVariable::TIME_DEP},
    {"FPS", 9, 0},
    {"NFRAMES", 3, 0},
    {"TEND", 6, 0},
    {"TLENGTH", 4, 0},
    {"TSTART", 5, 0},
    {"FSTART", 7, 0},
    {"FEND", 8, 0},
    {"RFSTART", 10, 0},
    {"RFEND", 11, 0},
    {"UNITLENGTH", 12, 0},
    {"UNITMASS", 13, 0},
    {nullptr, 0, 0},
};

// Back-quoted expressions nested this deep stop with engine error 8.
constexpr int theMaxExpansionDepth = 20;

// What a string expansion gathers on its way.
struct chScan
{
    CH_Manager *manager;
    int thread;
    bool timeDependent;
};

// The variable lookup of string expansion: the manager's variables (the
// evaluation collection's local ones first), then F followed by a width
// ($F4 is the frame padded to four digits), then the environment.
bool chLookupVariable(CH_Manager *manager, const char *name, UT_String &value, int thread,
                      bool &timeDependent)
{
    int td = 0;
    if (manager && manager->getVariableString(name, value, td, thread)) {
        timeDependent = timeDependent || td;
        return true;
    }
    if (manager && name[0] == 'F' && name[1]) {
        char *end = nullptr;
        long width = std::strtol(name + 1, &end, 10);
        bool digits = true;
        for (const char *p = name + 1; *p; ++p)
            digits = digits && *p >= '0' && *p <= '9';
        if (digits && !*end && width < 256) {
            // Written straight into the output: a shared buffer would race
            // between threads.
            value.sprintf("%0*d", static_cast<int>(width), manager->getIntegerVariableValue(0, thread));
            timeDependent = true;
            return true;
        }
    }
    if (const char *env = std::getenv(name)) {
        value = env;
        return true;
    }
    return false;
}

// The expression lookup of string expansion: evaluates the back-quoted text
// as a temporary expression, within the nesting limit.
bool chLookupExpression(CH_Manager *manager, const char *text, UT_String &value, int thread,
                        bool &timeDependent)
{
    if (!manager)
        return false;
    CH_Expression expr(text, CH_ORVISH);
    int &depth = manager->exprDepth(thread);
    ++depth;
    UT_ScopeExit restore([&depth] { --depth; }); // slots never move
    bool evaluated = false;
    // An error pending here was raised by this expansion (its entry set
    // older ones aside): once the nesting limit is hit, evaluate no more.
    if (depth >= theMaxExpansionDepth) {
        ev_SetErrNo(EV_ERRRECURSION, thread);
    } else if (!ev_GetErrNo(thread)) {
        expr.evaluateString(value, thread);
        evaluated = true;
    }
    if (expr.getExpressionFlag() & EV_FLAG_TIMEDEP)
        timeDependent = true;
    return evaluated;
}

using chLookup = bool (*)(CH_Manager *, const char *, UT_String &, int, bool &);

// Adapts a lookup to the scanner's callback.
template <chLookup Lookup>
bool chScanCallback(const char *text, UT_WorkBuffer &out, void *data)
{
    chScan &scan = *static_cast<chScan *>(data);
    UT_String value;
    if (!Lookup(scan.manager, text, value, scan.thread, scan.timeDependent))
        return false;
    out.append(value.buffer());
    return true;
}

} // namespace

// ---- Global variables ----------------------------------------------------------

const CH_LocalVariable *CH_Manager::getLocalVariableTable()
{
    return theGlobalVariables;
}

const CH_LocalVariable *CH_Manager::findGlobalVariable(const char *name)
{
    if (!name)
        return nullptr;
    for (const CH_LocalVariable *v = theGlobalVariables; v->name; ++v)
        if (!std::strcmp(v->name, name))
            return v;
    return nullptr;
}

float CH_Manager::getVariableValue(int id, int thread) const
{
    const float t = static_cast<float>(getEvaluateTime(thread));
    // Frame-valued settings are whole frames when the integer-frame flag is on.
    auto frames = [this](float sample) {
        return getIntegerFrameFlag() ? std::floor(sample + 0.5f) : sample;
    };
    switch (id) {
    case 0: return std::floor(getSample(t) + 0.5f);
    case 1: return getSample(t);
    case 2: return t;
    case 3: return niceNumber(myNumSamples, 3);
    case 4: return myEnd - myStart;
    case 5: return myStart;
    case 6: return myEnd;
    case 7: return frames(getSample(myStart));
    case 8: return frames(getSample(myEnd));
    case 9: return myFPS;
    case 10: return frames(myRangeFirst);
    case 11: return frames(myRangeLast);
    case 12: return myUnitLength;
    case 13: return myUnitMass;
    default: return 0.0f;
    }
}

int CH_Manager::getIntegerVariableValue(int id, int thread) const
{
    if (id != 0)
        return 0;
    const float t = static_cast<float>(getEvaluateTime(thread));
    const double frame = std::floor(niceNumber(t * myFPS + 1.0f, 3) + 0.5f);
    // Frames beyond the int range saturate, as number conversions do; a
    // NaN time has no frame: 0.
    if (std::isnan(frame))
        return 0;
    if (frame >= static_cast<double>(INT_MAX))
        return INT_MAX;
    if (frame <= static_cast<double>(INT_MIN))
        return INT_MIN;
    return static_cast<int>(frame);
}

void CH_Manager::getVariableValue(int id, UT_String &value, int thread) const
{
    std::ostringstream os;
    const CH_LocalVariable *v = theGlobalVariables;
    while (v->name && v->id != id)
        ++v;
    if (v->name && (v->flags & CH_LocalVariable::INTEGER))
        os << getIntegerVariableValue(id, thread);
    else
        os << getVariableValue(id, thread);
    value = os.str();
}

bool CH_Manager::getVariableString(const char *name, UT_String &value, int &timeDependent, int thread)
{
    if (CH_Collection *collection = getEvalCollection(thread)) {
        if (const CH_LocalVariable *local = collection->getLocalVariable(name)) {
            if (local->isTimeDependent())
                timeDependent = 1;
            collection->getVariableValue(1, local->id, value, thread);
            return true;
        }
    }
    const CH_LocalVariable *global = findGlobalVariable(name);
    if (!global)
        return false;
    if (global->isTimeDependent())
        timeDependent = 1;
    if (global->flags & CH_LocalVariable::INTEGER)
        value.sprintf("%d", getIntegerVariableValue(global->id, thread));
    else
        value.sprintf("%g", getVariableValue(global->id, thread));
    return true;
}

// ---- Texts ----------------------------------------------------------------------

bool CH_Manager::lookupVariable(const char *name, UT_String &value, int thread)
{
    if (!name)
        return false;
    return CH_EvalBoundary::run(
        thread,
        [&] {
            bool timeDependent = false;
            return chLookupVariable(getContext(), name, value, thread, timeDependent);
        },
        [] { return false; });
}

bool CH_Manager::lookupExpression(const char *text, UT_String &value, int thread)
{
    if (!text)
        return false;
    return CH_EvalBoundary::run(
        thread,
        [&] {
            bool timeDependent = false;
            return chLookupExpression(getContext(), text, value, thread, timeDependent);
        },
        [] { return false; });
}

bool CH_Manager::lookupVariableNoThread(const char *name, UT_String &value)
{
    return lookupVariable(name, value, 0);
}

bool CH_Manager::lookupExpressionNoThread(const char *text, UT_String &value)
{
    return lookupExpression(text, value, 0);
}

int CH_Manager::expandString(const char *text, UT_String &out, float time, CH_Collection *collection,
                             int thread, int flags)
{
    chScan scan{this, thread, false};
    const int done = CH_EvalBoundary::run(
        thread,
        [&] {
            setContext();
            chEvalSlot &slot = myEvalSlots.get(thread); // slots never move
            const double savedTime = slot.time;
            CH_Collection *const savedCollection = slot.collection;
            slot.time = time;
            if (collection)
                slot.collection = collection;
            UT_ScopeExit restore([&slot, savedTime, savedCollection] {
                slot.time = savedTime;
                slot.collection = savedCollection;
            });
            scan.thread = thread;
            UT_WorkBuffer result;
            const bool changed =
                UTExprVariableScan(text, (flags & 2) ? chScanCallback<chLookupVariable> : nullptr,
                                   (flags & 1) ? chScanCallback<chLookupExpression> : nullptr, &scan, result);
            out = changed ? result.toStdString() : std::string(text ? text : "");
            return 1;
        },
        [&] {
            out.clear(); // assigning the text could fail the same way
            return 0;
        });
    if (!done && !thread) {
        // A refused thread leaves the text as it is.
        try {
            out = text;
        } catch (...) {
        }
    }
    return scan.timeDependent ? static_cast<int>(EV_FLAG_TIMEDEP) : 0;
}

float CH_Manager::evaluate(const char *text, float time, CH_Collection *collection, int *timeDependent,
                           int thread, CH_ExprLanguage language)
{
    if (timeDependent)
        *timeDependent = 0;
    return CH_EvalBoundary::run(
        thread,
        [&] {
            CH_Expression expr(text, language);
            setContext();
            auto context = scopeEvalContext(this, time, collection, thread);
            const float value = expr.evaluate(thread);
            if (timeDependent)
                *timeDependent = (expr.getExpressionFlag() & EV_FLAG_TIMEDEP) ? 1 : 0;
            return value;
        },
        [] { return 0.0f; });
}

int CH_Manager::evaluateString(const char *text, UT_String &out, float time, CH_Collection *collection,
                               int thread, CH_ExprLanguage language)
{
    out.clear();
    return CH_EvalBoundary::run(
        thread,
        [&] {
            CH_Expression expr(text, language);
            setContext();
            auto context = scopeEvalContext(this, time, collection, thread);
            expr.evaluateString(out, thread);
            return (expr.getExpressionFlag() & EV_FLAG_TIMEDEP) ? 1 : 0;
        },
        [&] {
            out.clear();
            return 0;
        });
}

void CH_Manager::buildStringOpDependencies(const char *, void *, CH_Collection *, int)
{
}

int CH_Manager::changeStringOpRef(UT_String &out, const char *in, const char *, const char *,
                                  const char *, const char *, const char *, CH_Collection *, int)
{
    out = in;
    return 0;
}

// ---- Defines ----------------------------------------------------------------------

void CH_Manager::addExpressionDefine(const CH_ExprDefine &define)
{
    std::unique_lock<std::shared_mutex> guard(myDefinesLock);
    if (!myDefines)
        myDefines = std::make_unique<UT_SymbolTable<CH_ExprDefine *>>();
    if (CH_ExprDefine *old = myDefines->findSymbol(define.getName())) {
        if (old->getValue() != define.getValue())
            std::fprintf(stderr, "WARNING: Symbol conflict for define %s\n", define.getName());
        return;
    }
    myDefines->addSymbol(define.getName(), new CH_ExprDefine(define));
}

const CH_ExprDefine *CH_Manager::findExpressionDefine(const char *name) const
{
    std::shared_lock<std::shared_mutex> guard(myDefinesLock);
    return myDefines ? myDefines->findSymbol(name) : nullptr;
}
