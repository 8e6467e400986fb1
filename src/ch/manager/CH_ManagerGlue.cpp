// Registration of the channel library with the expression engine: the
// standard library, the string expander, the "define" and "localVar" types,
// the host variable callback and the library's functions.
#include "CH_Manager.h"

#include <ch/expr/CH_ExprDefine.h>
#include <ch/expr/CH_ExprFunctions.h>
#include <ch/expr/CH_Expression.h>
#include <ch/io/CH_Collection.h>

#include <ev/EV_Engine.h>
#include <ev/EV_ExprFlags.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <string>

namespace {

std::atomic<bool> theExpressionLibraryDone{false};
std::atomic<bool> theGlueDone{false};

bool chOnce(std::atomic<bool> &done)
{
    bool expected = false;
    return done.compare_exchange_strong(expected, true);
}

// ---- "define": named constants --------------------------------------------------

bool chResolveDefine(const char *name, double &value)
{
    CH_Manager *manager = CH_Manager::getContext();
    const CH_ExprDefine *define = manager ? manager->findExpressionDefine(name) : nullptr;
    if (!define)
        return false;
    value = define->getValue();
    return true;
}

// ---- "localVar": the collection's and the manager's variables --------------------
//
// A binding keeps the table entry (handle) and the table (id: 0 global,
// 1 local). Reading asks the thread's evaluation collection; with none, the
// manager answers the global variables itself.

unsigned chUsageBits(const CH_LocalVariable &v)
{
    if (v.isSegmentValue())
        return v.id == 12 ? EV_FLAG_INVALUE : EV_FLAG_OUTVALUE; // IV: in value, OV: out value
    if (v.isSegmentSlope())
        return EV_FLAG_SLOPES;
    if (v.isSegmentAccel())
        return EV_FLAG_ACCELS;
    return 0;
}

// The thread's evaluation collection, when compiling in one, resolves its
// own and its added tables (table 1, then 2, 3, ...); otherwise the
// collections' own table; then the manager's globals (table 0).
bool chResolveLocalVar(const char *name, EV_VarBinding &binding, int thread)
{
    CH_Manager *manager = CH_Manager::getContext();
    CH_Collection *collection = manager ? manager->getEvalCollection(thread) : nullptr;
    const CH_LocalVariable *v = nullptr;
    int table = 1;
    bool dynamic = false;
    if (collection) {
        if (!collection->resolveVariable(name, table, v, dynamic))
            v = nullptr;
    } else {
        for (const CH_LocalVariable *l = CH_Collection::getLocalVariableTable(); l->name && !v; ++l)
            if (!std::strcmp(l->name, name))
                v = l;
    }
    if (!v) {
        if (!(v = CH_Manager::findGlobalVariable(name)))
            return false;
        table = 0;
    }
    binding.id = table;
    binding.handle = v;
    binding.flags = table <= 1 ? chUsageBits(*v) : 0u;
    if (v->flags & CH_LocalVariable::STRING)
        binding.flags |= EV_VarBinding::STRING;
    if (v->isTimeDependent() || dynamic)
        binding.flags |= EV_VarBinding::TIME_DEP;
    return true;
}

double chLocalVarFloat(const EV_VarBinding &binding, int thread)
{
    CH_Manager *manager = CH_Manager::getContext();
    if (!manager)
        return 0.0;
    const CH_LocalVariable *v = static_cast<const CH_LocalVariable *>(binding.handle);
    const int table = static_cast<int>(binding.id);
    if (CH_Collection *collection = manager->getEvalCollection(thread))
        return collection->getVariableValue(table, v->id, thread);
    return table == 0 ? manager->getVariableValue(v->id, thread) : 0.0;
}

void chLocalVarString(const EV_VarBinding &binding, std::string &value, int thread)
{
    CH_Manager *manager = CH_Manager::getContext();
    if (!manager)
        return;
    const CH_LocalVariable *v = static_cast<const CH_LocalVariable *>(binding.handle);
    const int table = static_cast<int>(binding.id);
    UT_String text;
    if (CH_Collection *collection = manager->getEvalCollection(thread))
        collection->getVariableValue(table, v->id, text, thread);
    else if (table == 0)
        manager->getVariableValue(v->id, text, thread);
    value = text.toStdString();
}

EV_TYPEDEF theDefineType{12, "define", chResolveDefine, nullptr, nullptr, nullptr};
EV_TYPEDEF theLocalVarType{10, "localVar", nullptr, chResolveLocalVar, chLocalVarFloat, chLocalVarString};

// Names no type claims: the current manager's variables.
bool chHostVariable(const char *name, std::string &value, bool &timeDependent, int thread)
{
    CH_Manager *manager = CH_Manager::getContext();
    UT_String text;
    int td = 0;
    if (!manager || !manager->getVariableString(name, text, td, thread))
        return false;
    value = text.toStdString();
    timeDependent = td != 0;
    return true;
}

// The engine's string expander: variables and back-quoted expressions, at the
// thread's evaluation time and collection. The text returned is the
// engine's to free.
char *chExprExpander(const char *text, int thread)
{
    CH_Manager *manager = CH_Manager::getContext();
    if (!manager)
        return nullptr;
    UT_String out;
    int flags = manager->expandString(text, out, static_cast<float>(manager->getEvaluateTime(thread)),
                                      manager->getEvalCollection(thread), thread, 3);
    if (flags & EV_FLAG_TIMEDEP)
        CH_Expression::addExprFlags(EV_FLAG_TIMEDEP, thread);
    return strdup(out.buffer());
}

} // namespace

void CH_Manager::initExpressionLibrary()
{
    if (!chOnce(theExpressionLibraryDone))
        return;
    ev_InitFloat();
    ev_InitString();
    ev_InitVector();
    ev_InitVariable();
    ev_InitUserFunc();
    ev_SetExpander(chExprExpander);
}

void CH_Manager::initLibraryGlue()
{
    if (!chOnce(theGlueDone))
        return;
    setContext();
    initExpressionLibrary();
    ev_AddType(&theDefineType);
    ev_AddVariableType(&theLocalVarType, 0);
    ev_SetOptimization(0);
    for (EV_FUNCTION **f = CHgetExpressionFunctionTable(); *f; ++f)
        ev_AddFunction(*f);
    // Last: names no type or function claims fall through to the manager.
    ev_SetVariableCallback(chHostVariable);
}
