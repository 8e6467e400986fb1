#include <ch/manager/CH_Group.h>

#include <ch/manager/CH_Manager.h>

CH_Group::CH_Group() : myScopeStatus(0), myScopeDirty(theAllScopeBits), myInTree(0) {}

CH_Group::~CH_Group()
{
    for (int i = mySubGroups.entries() - 1; i >= 0; --i)
        delete mySubGroups(i);
}

int CH_Group::findIndex(const CH_Group *g) const
{
    return mySubGroups.find(const_cast<CH_Group *>(g));
}

bool CH_Group::isEventualParentOf(const CH_Group *g) const
{
    for (; g; g = g->myParent)
        if (g == this)
            return true;
    return false;
}

void CH_Group::getFullPath(UT_String &path) const
{
    if (!myParent)
    {
        path = "/";
        return;
    }
    if (!myParent->myParent)
    {
        path = myName;
        return;
    }
    myParent->getFullPath(path);
    path += "/";
    path += myName;
}

bool CH_Group::isEmpty() const
{
    if (myChannels.entries())
        return false;
    for (const CH_Group *g : mySubGroups)
        if (!g->isEmpty())
            return false;
    return true;
}

bool CH_Group::contains(const CH_ChannelRef &ref) const
{
    if (strictContains(ref))
        return true;
    for (const CH_Group *g : mySubGroups)
        if (g->contains(ref))
            return true;
    return false;
}

CH_Group *CH_Group::findGroup(const char *name) const
{
    if (!name || !*name)
        return const_cast<CH_Group *>(this);
    for (int i = mySubGroups.entries() - 1; i >= 0; --i)
        if (mySubGroups(i)->myName == name)
            return mySubGroups(i);
    return nullptr;
}

unsigned CH_Group::getScopeFlags(unsigned mask)
{
    updateScopeFlags(mask);
    return myScopeStatus & mask;
}

bool CH_Group::updateScopeFlags(unsigned mask)
{
    unsigned m = mask & myScopeDirty;
    if (!m)
        return false;

    bool changed = false;
    unsigned status = 0;
    if (!isEmpty())
    {
        status = m;
        for (CH_Group *g : mySubGroups)
        {
            changed |= g->updateScopeFlags(m);
            status &= g->myScopeStatus;
        }
        CH_Manager *mgr = CH_Manager::getContext();
        for (const auto &entry : myChannels)
        {
            const CH_ChannelRef &ref = entry.first.getRef();
            if (!mgr || !mgr->isOwnerExposed(ref))
                continue;
            status &= mgr->getChannelFlags(ref);
        }
    }
    if (status != (myScopeStatus & m))
    {
        myScopeStatus = (myScopeStatus & ~m) | status;
        changed = true;
    }
    myScopeDirty = myScopeDirty & ~m;
    return changed;
}

void CH_Group::dirtyScopeFlags(unsigned mask)
{
    mask &= theAllScopeBits;
    myScopeDirty = myScopeDirty | mask;
    for (CH_Group *g = myParent; g; g = g->myParent)
    {
        // An ancestor that already has a bit dirty has its ancestors dirty too.
        mask &= ~g->myScopeDirty;
        if (!mask)
            break;
        g->myScopeDirty = g->myScopeDirty | mask;
    }
}

void CH_Group::dirtySubtreeScopeFlags(unsigned mask)
{
    myScopeDirty = myScopeDirty | (mask & theAllScopeBits);
    for (CH_Group *g : mySubGroups)
        g->dirtySubtreeScopeFlags(mask);
}

CH_Group *CH_Group::createGroupInternal(const char *name)
{
    auto *g = new CH_Group;
    g->myName = name;
    g->myParent = this;
    g->myInTree = myInTree;
    mySubGroups.append(g);
    dirtyScopeFlags(g->myScopeDirty);
    return g;
}
