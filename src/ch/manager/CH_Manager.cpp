#include "CH_Manager.h"

#include <ch/auxiliary/CH_ScriptAccessManager.h>
#include <ch/expr/CH_ExprDefine.h>
#include <ch/io/CH_Collection.h>
#include <ch/manager/CH_Group.h>
#include <ch/manager/CH_TimeGroup.h>

#include <atomic>
#include <cstdio>

namespace {

// One-shot evaluation and expansion make their manager current from any
// thread (usually storing the value already there): atomic, so that is safe.
std::atomic<CH_Manager *> theContext{nullptr};

} // namespace

CH_Manager::CH_Manager(int initLibrary)
{
    resetPlayback();
    myFlags |= theConstructed;
    myRawInterpolation = 1;
    myRootCollection = nullptr;
    myTimeCodeOffset = 0.0f;
    myDefaultExpression = "bezier()";
    myDefaultRotationExpression = "bezier()";
    myAutoSplit = true;
    myDefaultSplitExpression = "";
    myAutoSlope = true;
    myDefaultSlope = 0.0f;
    myHoldLastKey = false;
    myChanCreateKeyExpression = "";
    myAlwaysCommitKeyChange = true;
    mySegCacheStatus = false;
    myAudioLevel = 1.0f;
    myUnitLength = 1.0f;
    myUnitMass = 1.0f;
    myDefaultExprLanguage = CH_ORVISH;
    myTopGroup = std::make_unique<CH_Group>();
    myTopGroup->myInTree = 1;
    mySelectedGroupPaths.clear();
    myCurrentGroupPath = "/";
    if (initLibrary)
        initLibraryGlue();
    CH_Manager *none = nullptr;
    theContext.compare_exchange_strong(none, this);
}

CH_Manager::~CH_Manager()
{
    for (int i = myTimeGroups.entries() - 1; i >= 0; --i)
        delete myTimeGroups(i);
    if (myDefines)
        myDefines->traverse([](const char *, CH_ExprDefine *d) { delete d; });
    CH_Manager *self = this;
    theContext.compare_exchange_strong(self, nullptr);
}

CH_Manager *CH_Manager::getContext()
{
    return theContext.load(std::memory_order_acquire);
}

bool CH_Manager::getContextExists()
{
    return getContext() != nullptr;
}

void CH_Manager::setContext()
{
    theContext.store(this, std::memory_order_release);
}


// ---- References: the host's manager overrides these --------------------------

CH_Channel *CH_Manager::getChRefChannel(const CH_ChannelRef &) const
{
    return nullptr;
}

bool CH_Manager::isOwnerExposed(const CH_ChannelRef &) const
{
    return true;
}

bool CH_Manager::buildChanRef(CH_ChannelRef &, const char *) const
{
    return false;
}

bool CH_Manager::buildChanRef(CH_ChannelRef &, const CH_Channel *) const
{
    return false;
}

int CH_Manager::compareChanRefs(const CH_ChannelRef &, const CH_ChannelRef &) const
{
    return 0;
}

void CH_Manager::getChanRefPath(const CH_ChannelRef &, UT_String &, bool) const
{
}

std::ostream &operator<<(std::ostream &os, const CH_ChannelRef &ref)
{
    UT_String path;
    if (CH_Manager *manager = CH_Manager::getContext())
        manager->getChanRefPath(ref, path, false);
    return os << path;
}

// ---- Evaluation context --------------------------------------------------------

void CH_Manager::setEvalCollection(CH_Collection *collection, int thread)
{
    myEvalSlots.get(thread).collection = collection;
}

void CH_Manager::setEvaluateTime(float t, int thread)
{
    myEvalSlots.get(thread).time = t;
}

double CH_Manager::getEvaluateTime(int thread) const
{
    return myEvalSlots.get(thread).time;
}

int &CH_Manager::exprDepth(int thread)
{
    return myEvalSlots.get(thread).depth;
}
