#include "CH_Collection.h"

#include <ch/channel/CH_Channel.h>
#include <ch/channel/CH_Segment.h>
#include <ch/expr/CH_EvalBoundary.h>
#include <ch/manager/CH_EventManager.h>
#include <ch/manager/CH_Manager.h>

#include <ev/EV_Engine.h>

#include <ut/UT_ErrorManager.h>
#include <ut/UT_Thread.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstring>

namespace {

// The local variables, in table order.
const CH_LocalVariable theLocalVariables[] = {
    {"IV", 12, CH_LocalVariable::SEGMENT_VALUE},
    {"OV", 13, CH_LocalVariable::SEGMENT_VALUE},
    {"IM", 14, CH_LocalVariable::SEGMENT_SLOPE},
    {"OM", 15, CH_LocalVariable::SEGMENT_SLOPE},
    {"IA", 16, CH_LocalVariable::SEGMENT_ACCEL},
    {"OA", 17, CH_LocalVariable::SEGMENT_ACCEL},
    {"OS", 0, CH_LocalVariable::STRING},
    {"CH", 1, CH_LocalVariable::STRING},
    {"LT", 2, 0},
    {"IT", 3, 0},
    {"OT", 4, 0},
    {"LIT", 5, 0},
    {"LOT", 6, 0},
    {"PREV_IT", 7, 0},
    {"NEXT_OT", 8, 0},
    {"_NSEGP", 11, CH_LocalVariable::DATA},
    {"_PSEGP", 10, CH_LocalVariable::DATA},
    {"_SEGP", 9, CH_LocalVariable::DATA},
    {nullptr, 0, 0},
};

std::atomic<int> theNextUniqueId{1};

} // namespace

CH_Collection::CH_Collection(CH_Manager *manager, CH_Collection *parent, const char *name)
    : myManager(manager), myParent(parent), myName(name),
      myExprLanguage(manager ? manager->getDefaultExprLanguage() : CH_ORVISH),
      myUniqueId(theNextUniqueId.fetch_add(1, std::memory_order_relaxed))
{
}

CH_Collection::~CH_Collection()
{
    CHgetEventManager()->collectionDestroyed(this);
    deleteChannels();
}

void CH_Collection::initManager(CH_Manager *manager)
{
    myManager = manager;
    if (manager)
        myExprLanguage = manager->getDefaultExprLanguage();
}

CH_Collection *CH_Collection::getRoot()
{
    CH_Collection *c = this;
    while (c->myParent)
        c = c->myParent;
    return c;
}

const CH_Collection *CH_Collection::getRoot() const
{
    return const_cast<CH_Collection *>(this)->getRoot();
}

CH_Collection *CH_Collection::findCollection(const char *path) const
{
    CH_Collection *self = const_cast<CH_Collection *>(this);
    if (!path)
        return nullptr;
    if (!*path || !std::strcmp(path, "."))
        return self;
    if (!std::strcmp(path, ".."))
        return myParent;
    return nullptr;
}

void CH_Collection::getFullPath(const CH_Channel *channel, UT_String &path, bool use_alias) const
{
    getFullPath(path);
    if (!channel)
        return;
    if (std::strcmp(path, "/") != 0)
        path += "/";
    path += use_alias ? channel->getAlias() : channel->getName();
}

void CH_Collection::removeParamDependency()
{
    if (myManager)
        myManager->removeParamDependency(this);
}

void CH_Collection::getFullPath(UT_String &path) const
{
    if (!myParent) {
        path = "/";
        return;
    }
    myParent->getFullPath(path);
    if (std::strcmp(path, "/") != 0)
        path += "/";
    path += myName;
}

const CH_LocalVariable *CH_Collection::getLocalVariableTable()
{
    return theLocalVariables;
}

const CH_LocalVariable *CH_Collection::getLocalVariable(const char *name) const
{
    int table;
    const CH_LocalVariable *v;
    bool dynamic;
    return resolveVariable(name, table, v, dynamic) ? v : nullptr;
}

bool CH_Collection::resolveVariable(const char *name, int &table, const CH_LocalVariable *&variable,
                                    bool &dynamic) const
{
    auto find = [name](const CH_LocalVariable *v) -> const CH_LocalVariable * {
        for (; v && v->name; ++v)
            if (!std::strcmp(v->name, name))
                return v;
        return nullptr;
    };
    if (!name)
        return false;
    if ((variable = find(theLocalVariables))) {
        table = 1;
        dynamic = false;
        return true;
    }
    for (std::size_t i = 0; i < myVariableTables.size(); ++i) {
        if ((variable = find(myVariableTables[i].table))) {
            table = static_cast<int>(i) + 2;
            dynamic = myVariableTables[i].dynamic;
            return true;
        }
    }
    return false;
}

void CH_Collection::addLocalVariables(const CH_LocalVariable *table)
{
    addVariables(table, false);
}

void CH_Collection::addDynamicVariables(const CH_LocalVariable *table)
{
    addVariables(table, true);
}

void CH_Collection::addVariables(const CH_LocalVariable *table, bool dynamic)
{
    if (!table)
        return;
    myVariableTables.push_back({table, dynamic});
    // Names compiled before may mean one of the new variables now.
    for (CH_Channel *c : myChannels)
        for (int i = 0; i < c->getNSegments(); ++i)
            c->getSegment(static_cast<unsigned>(i))->unresolveLocalVars(0);
}


float CH_Collection::getVariableValue(int table, int id, int thread)
{
    if (table == 0)
        return myManager ? myManager->getVariableValue(id, thread) : 0.0f;
    if (table != 1)
        return 0.0f; // the tables a host added: the host's subclass answers
    CH_Channel *c = myEvalSlots.get(thread).channel;
    CH_Segment *s = c ? c->getEvaluationSegment(thread) : nullptr;
    if (!s)
        return 0.0f;
    switch (id)
    {
    case 2: return c->getLocalTime(thread);
    case 3: return c->getInTime(thread);
    case 4: return c->getOutTime(thread);
    case 5: return s->getStart();
    case 6: return s->getEnd();
    case 7: return c->getPrevInTime(thread);
    case 8: return c->getNextOutTime(thread);
    case 12: return s->getInValue();
    case 13: return s->getOutValue();
    case 14: return s->getInSlope();
    case 15: return s->getOutSlope();
    case 16: return s->getInAccel();
    case 17: return s->getOutAccel();
    }
    return 0.0f;
}

void CH_Collection::getVariableValue(int table, int id, UT_String &value, int thread)
{
    if (table == 1 && id == 0) {
        value = myName; // OS: the owner's name
        return;
    }
    if (table == 1 && id == 1) {
        // CH: the evaluating channel's name; with none, the stored name.
        const chEvalSlot &slot = myEvalSlots.get(thread);
        if (!slot.channel)
            value = myEvalChannelName;
        else
            value = slot.name ? slot.name : slot.channel->getName();
        return;
    }
    value.sprintf("%g", getVariableValue(table, id, thread));
}

void *CH_Collection::getVariableData(int table, int id, int thread)
{
    if (table != 1)
        return nullptr;
    CH_Segment *s = evalSegment(thread);
    switch (id)
    {
    case 9: return s;
    case 10: return s ? s->getPrev() : nullptr;
    case 11: return s ? s->getNext() : nullptr;
    }
    return nullptr;
}

float CH_Collection::getTolerance() const
{
    return myManager ? myManager->getTolerance() : 1.0f / 2400.0f;
}

float CH_Collection::getGlobalStart() const
{
    return myManager ? myManager->getGlobalStart() : 0.0f;
}

float CH_Collection::getGlobalEnd() const
{
    return myManager ? myManager->getGlobalEnd() : 0.0f;
}

int CH_Collection::canAccess(unsigned) const
{
    return 1;
}

int CH_Collection::canAccessChannel(unsigned, const CH_Channel *) const
{
    return 1;
}

void CH_Collection::reportError(const char *table, int code, const char *message)
{
    UTaddError(table, code, message);
}

// ---- Evaluation ---------------------------------------------------------------------

void CH_Collection::setEvalChannel(CH_Channel *channel, int thread, const char *name)
{
    chEvalSlot &slot = myEvalSlots.get(thread);
    slot.channel = channel;
    slot.name = name;
}

void CH_Collection::setEvalChannel(CH_Channel *channel, const char *name, CH_Channel *&prev_channel,
                                   const char *&prev_name, int thread)
{
    chEvalSlot &slot = myEvalSlots.get(thread);
    prev_channel = slot.channel;
    prev_name = slot.name;
    slot.channel = channel;
    slot.name = name;
}

CH_Channel *CH_Collection::getEvalChannel(int thread) const
{
    return myEvalSlots.get(thread).channel;
}

void CH_Collection::getEvalChannelAndName(CH_Channel *&channel, const char *&name, int thread) const
{
    const chEvalSlot &slot = myEvalSlots.get(thread);
    channel = slot.channel;
    name = slot.name;
}

void CH_Collection::evaluationError(const CH_Channel *channel, int err, int thread)
{
    UT_String path, message;
    getFullPath(path);
    message.sprintf("%s (%s/%s)", ev_GetErrorTextForThread(err, thread), path.c_str(),
                    channel ? channel->getName() : "");
    reportError("CH", 0, message);
    EXPR_theErrNo(thread) = 0;
}

void CH_Collection::checkEvaluationError(const CH_Channel *channel, int thread)
{
    int err = EXPR_theErrNo(thread);
    // A read nested in an evaluation that hit the nesting limit: the error
    // stays pending, so the outermost read reports it once.
    if (err == EV_ERRRECURSION && ev_IsUnwinding(thread))
        return;
    if (err)
        evaluationError(channel, err, thread);
}


// The entry points of evaluation (see CH_EvalBoundary). The channel's own
// entry point catches what its evaluation throws; the error it leaves is
// reported here, while an earlier one is still set aside.
float CH_Collection::evaluate(CH_Channel *channel, float time, bool ignore_disabled, int thread)
{
    if (!channel)
        return 0.0f;
    return CH_EvalBoundary::run(
        thread,
        [&] {
            float v;
            {
                auto context = CH_Manager::scopeEvalContext(myManager, time, this, thread);
                v = channel->evaluate(time, ignore_disabled, thread);
            }
            checkEvaluationError(channel, thread);
            return v;
        },
        [] { return 0.0f; });
}

void CH_Collection::evaluate(CH_Channel *channel, float from, float to, float *out, int count,
                             bool ignore_disabled, bool use_cache, int thread)
{
    if (!channel || !out || count <= 0)
        return;
    CH_EvalBoundary::run(
        thread,
        [&] {
            {
                auto context = CH_Manager::scopeEvalContext(myManager, from, this, thread);
                channel->evaluate(from, to, out, count, ignore_disabled, use_cache, thread);
            }
            checkEvaluationError(channel, thread);
        },
        [&] { std::fill(out, out + count, 0.0f); });
}

void CH_Collection::evaluateString(UT_String &result, CH_Channel *channel, float time, int thread)
{
    result = "";
    if (!channel)
        return;
    CH_EvalBoundary::run(
        thread,
        [&] {
            {
                auto context = CH_Manager::scopeEvalContext(myManager, time, this, thread);
                channel->evaluateString(result, time, thread);
            }
            checkEvaluationError(channel, thread);
        },
        [&] { result.clear(); });
}

void CH_Collection::setChanged(CH_CHANGE_TYPE type, void *)
{
    if (type != CH_UNCHANGED)
        myChanged = true;
}
