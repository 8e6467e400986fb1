// The manager's side of channel groups and time groups.
#include "CH_Manager.h"

#include <ch/io/CH_Collection.h>
#include <ch/manager/CH_Group.h>
#include <ch/manager/CH_TimeGroup.h>

#include <cctype>
#include <cstdio>
#include <cstring>
#include <string>

// ---- Channel groups ------------------------------------------------------------

CH_Group *CH_Manager::findGroup(const char *path, bool create, CH_Group *start)
{
    CH_Group *group = start ? start : myTopGroup.get();
    if (!group || !path)
        return group;
    const char *p = path;
    while (*p)
    {
        while (*p == '/')
            ++p;
        const char *end = std::strchr(p, '/');
        std::string name(p, end ? static_cast<std::size_t>(end - p) : std::strlen(p));
        if (name.empty())
            break;
        CH_Group *child = group->findGroup(name.c_str());
        if (!child && create)
            child = group->createGroupInternal(name.c_str());
        if (!child)
            return nullptr;
        group = child;
        p += name.size();
    }
    return group;
}

namespace {

bool replaceInvalid(UT_String &text, bool keep_slash)
{
    std::string s = text.c_str();
    bool replaced = false;
    for (char &c : s)
    {
        unsigned char u = static_cast<unsigned char>(c);
        if (std::isalnum(u) || c == '_' || (keep_slash && c == '/'))
            continue;
        c = '_';
        replaced = true;
    }
    if (replaced)
        text = s.c_str();
    return replaced;
}

} // namespace

bool CH_Manager::makeGroupNameValid(UT_String &name)
{
    bool changed = false;
    if (!name.isstring())
    {
        name = "group";
        changed = true;
    }
    return replaceInvalid(name, false) || changed;
}

bool CH_Manager::makeGroupPathValid(UT_String &path)
{
    if (!path.isstring())
    {
        path = "/";
        return true;
    }
    return replaceInvalid(path, true);
}

CH_Group *CH_Manager::getCurrentGroup()
{
    return myCurrentGroupPath.isstring() ? findGroup(myCurrentGroupPath, false, nullptr) : nullptr;
}

void CH_Manager::updateCurrentGroup(CH_Group *group, void *data, bool send)
{
    UT_String path("/");
    if (group)
        group->getFullPath(path);
    if (path == myCurrentGroupPath)
        return;
    myCurrentGroupPath = path;
    if (send && myRootCollection)
        myRootCollection->setChanged(CH_GROUP_CURCHANGED, data);
}

UT_PtrArray<CH_Group *> CH_Manager::getSelectedGroups()
{
    UT_PtrArray<CH_Group *> groups;
    for (const UT_String &path : mySelectedGroupPaths)
        if (CH_Group *g = findGroup(path, false, nullptr))
            groups.append(g);
    return groups;
}

void CH_Manager::updateGroupSelection(const UT_PtrArray<CH_Group *> &groups, void *data, bool send)
{
    UT_StringArray paths;
    for (const CH_Group *g : groups)
    {
        UT_String path;
        g->getFullPath(path);
        paths.append(path);
    }
    if (paths == mySelectedGroupPaths)
        return;
    mySelectedGroupPaths = paths;
    if (send && myRootCollection)
        myRootCollection->setChanged(CH_GROUP_SELCHANGED, data);
}

// ---- Time groups ---------------------------------------------------------------

void CH_Manager::timeGroupsChanged()
{
    if (myRootCollection)
        myRootCollection->setChanged(CH_CHANNELS_MAJOR_CHANGE, nullptr);
}

void CH_Manager::uniqueTimeGroupName(UT_String &name, bool force) const
{
    if (!force && getTimeGroupIdx(name) < 0)
        return;
    // Built in a 256-byte buffer: long names are cut to fit, like any name
    // the editors show.
    char buffer[256];
    for (int n = 1; n <= 1999; ++n)
    {
        std::snprintf(buffer, sizeof(buffer), "%s%d", name.c_str(), n);
        if (getTimeGroupIdx(buffer) < 0)
        {
            name = buffer;
            return;
        }
    }
    for (int n = 1;; ++n)
    {
        std::snprintf(buffer, sizeof(buffer), "grp%d%s", n, name.c_str());
        if (getTimeGroupIdx(buffer) < 0)
        {
            name = buffer;
            return;
        }
    }
}

void CH_Manager::addTimeGroup(CH_TimeGroup *group, bool unique, bool force)
{
    if (!group)
        return;
    if (!unique)
    {
        myTimeGroups.append(group);
        timeGroupsChanged();
        return;
    }
    if (myTimeGroups.find(group) >= 0)
        return;
    uniqueTimeGroupName(group->myName, force);
    timeGroupsChanged();
    myTimeGroups.append(group);
    myTimeGroups.stableSort([](const CH_TimeGroup *a, const CH_TimeGroup *b) {
        return std::strcmp(a->getName(), b->getName()) < 0;
    });
    timeGroupsChanged();
}

void CH_Manager::renameTimeGroup(CH_TimeGroup *group, const char *name, bool force)
{
    if (!group)
        return;
    UT_String unique(name);
    uniqueTimeGroupName(unique, force);
    group->myName = unique;
    timeGroupsChanged();
}

int CH_Manager::getTimeGroupIdx(const char *name) const
{
    for (int i = myTimeGroups.entries() - 1; i >= 0; --i)
        if (myTimeGroups(i)->myName == name)
            return i;
    return -1;
}

CH_TimeGroup *CH_Manager::getTimeGroup(const char *name)
{
    int i = getTimeGroupIdx(name);
    return i < 0 ? nullptr : myTimeGroups(i);
}

const CH_TimeGroup *CH_Manager::getTimeGroup(const char *name) const
{
    int i = getTimeGroupIdx(name);
    return i < 0 ? nullptr : myTimeGroups(i);
}

void CH_Manager::destroyTimeGroup(int index)
{
    if (index < 0 || index >= myTimeGroups.entries())
        return;
    delete myTimeGroups(index);
    myTimeGroups.removeIndex(index);
    timeGroupsChanged();
}

void CH_Manager::destroyTimeGroup(const CH_TimeGroup *group)
{
    if (group)
        destroyTimeGroup(getTimeGroupIdx(group->getName()));
}

// ---- Channels of groups -----------------------------------------------------------

namespace {

// The groups under 'group' whose paths match the pattern (with or without
// a leading "/"), first to last; a matching group's subgroups are skipped.
void chFindGroups(CH_Group *group, const char *pattern, UT_PtrArray<CH_Group *> &found)
{
    UT_String path, rooted;
    group->getFullPath(path);
    if (path.buffer()[0] != '/')
        rooted = "/";
    rooted += path;
    if (UT_String::multiMatch(rooted, pattern) || UT_String::multiMatch(path, pattern)) {
        if (!group->isRoot()) {
            found.append(group);
            return;
        }
    }
    for (CH_Group *child : group->getSubGroups())
        chFindGroups(child, pattern, found);
}

// The references of a group and all its descendants, each once.
void chGatherRefs(const CH_Group *group, CH_ChannelRefHashTable &refs)
{
    for (const auto &entry : group->getChannelTable())
        refs.set(entry.first.getRef(), 1);
    for (const CH_Group *child : group->getSubGroups())
        chGatherRefs(child, refs);
}

} // namespace

int CH_Manager::findChannelsFromGroups(UT_PtrArray<CH_Channel *> &channels, const char *pattern)
{
    UT_PtrArray<CH_Group *> groups;
    if (myTopGroup && pattern)
        chFindGroups(myTopGroup.get(), pattern, groups);
    int appended = 0;
    for (int i = groups.entries() - 1; i >= 0; --i) {
        CH_ChannelRefHashTable refs;
        chGatherRefs(groups(i), refs);
        for (const auto &entry : refs)
            if (CH_Channel *c = getChRefChannel(entry.first.getRef())) {
                channels.append(c);
                ++appended;
            }
    }
    return appended;
}
