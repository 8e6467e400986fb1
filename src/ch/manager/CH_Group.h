#ifndef CH_GROUP_H
#define CH_GROUP_H

#include <ch/manager/CH_ChannelRefHashTable.h>

#include <ut/UT_PtrArray.h>
#include <ut/UT_String.h>

/// A named set of channel references in the manager's group tree,
/// independent of the node hierarchy. A group owns its subgroups. Besides
/// its references it summarises the scope flags of its subtree: a status
/// bit is set when every channel below has that flag; dirty bits say which
/// status bits must be recomputed.
class CH_Group
{
public:
    CH_Group();
    ~CH_Group();
    CH_Group(const CH_Group &) = delete;
    CH_Group &operator=(const CH_Group &) = delete;

    /// The character that marks a group name in channel patterns.
    static char getGroupChar() { return '@'; }

    const char *getName() const { return myName; }
    CH_Group *getParentGroup() const { return myParent; }
    const UT_PtrArray<CH_Group *> &getSubGroups() const { return mySubGroups; }
    int getSubGroupEntries() const { return mySubGroups.entries(); }
    /// The number of the group's own references.
    int getEntries() const { return myChannels.entries(); }
    bool isInTree() const { return myInTree; }
    /// In the manager's tree and without parent: the top group.
    bool isRoot() const { return myInTree && !myParent; }
    /// The position of a subgroup, negative when it is not one.
    int findIndex(const CH_Group *g) const;
    /// True when this group is g or one of its ancestors.
    bool isEventualParentOf(const CH_Group *g) const;
    /// "/" without parent; a child of the top just its name; deeper ones
    /// their parent's path, "/", their name.
    void getFullPath(UT_String &path) const;

    /// No own references and every subgroup empty.
    bool isEmpty() const;
    bool strictContains(const CH_ChannelRef &ref) const { return myChannels.contains(ref); }
    /// Own references or any descendant's.
    bool contains(const CH_ChannelRef &ref) const;
    const CH_ChannelRefHashTable &getChannelTable() const { return myChannels; }

    /// The direct subgroup of a name (searched from the last), the group
    /// itself for an empty name, null when absent.
    CH_Group *findGroup(const char *name) const;

    /// Status bits within mask (recomputed where dirty).
    unsigned getScopeFlags(unsigned mask);
    /// Recomputes the dirty status bits within mask; true when any status
    /// bit changed here or below.
    bool updateScopeFlags(unsigned mask);
    /// Marks bits dirty here and on the ancestors that do not already have
    /// them dirty.
    void dirtyScopeFlags(unsigned mask);
    void dirtyAllScopeFlags() { dirtyScopeFlags(theAllScopeBits); }
    /// Marks bits dirty on the group and all its descendants.
    void dirtySubtreeScopeFlags(unsigned mask);

private:
    friend class CH_Manager; // creates the top group and groups along paths

    /// Appends a new child of that name. Moving groups, events and undo
    /// records for structural changes come with group editing.
    CH_Group *createGroupInternal(const char *name);

    static constexpr unsigned theAllScopeBits = 31u;

    UT_String myName;
    CH_Group *myParent = nullptr;
    unsigned myScopeStatus : 5;
    unsigned myScopeDirty : 5;
    unsigned myInTree : 1;
    CH_ChannelRefHashTable myChannels;
    UT_PtrArray<CH_Group *> mySubGroups;
};

#endif
