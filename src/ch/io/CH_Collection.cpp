#include "CH_Collection.h"

#include <ch/manager/CH_Manager.h>

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

} // namespace

CH_Collection::CH_Collection(CH_Manager *manager, CH_Collection *parent, const char *name)
    : myManager(manager), myParent(parent), myName(name)
{
}

CH_Collection::~CH_Collection() = default;

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
    if (!name)
        return nullptr;
    for (const CH_LocalVariable *v = theLocalVariables; v->name; ++v)
        if (!std::strcmp(v->name, name))
            return v;
    return nullptr;
}

float CH_Collection::getVariableValue(int table, int id, int thread)
{
    if (table == 0)
        return myManager ? myManager->getVariableValue(id, thread) : 0.0f;
    // Segment values and times come from the evaluation channel, which the
    // channel core provides; without one they are 0.
    (void)id;
    return 0.0f;
}

void CH_Collection::getVariableValue(int table, int id, UT_String &value, int thread)
{
    if (table == 1 && id == 0) {
        value = myName; // OS: the owner's name
        return;
    }
    if (table == 1 && id == 1) {
        value = myEvalChannelName; // CH
        return;
    }
    if (table == 0 && myManager) {
        myManager->getVariableValue(id, value, thread);
        return;
    }
    value.sprintf("%g", getVariableValue(table, id, thread));
}

void *CH_Collection::getVariableData(int, int, int)
{
    return nullptr;
}

void CH_Collection::setChanged(CH_CHANGE_TYPE type, void *)
{
    if (type != CH_UNCHANGED)
        myChanged = true;
}
