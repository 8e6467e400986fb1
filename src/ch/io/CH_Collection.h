#ifndef CH_COLLECTION_H
#define CH_COLLECTION_H

#include <ch/expr/CH_LocalVariable.h>
#include <ch/manager/CH_ChangeType.h>

#include <ut/UT_String.h>

class CH_Manager;

/// The channels of one node, and the local variables its expressions see.
///
/// For now it holds what evaluation context needs: its manager and parent,
/// its name and path, and the local variable table (IV, OV, LT, CH, ...)
/// answered through the overridable getVariableValue operations. Channels
/// are added by the channel core.
class CH_Collection
{
public:
    CH_Collection(CH_Manager *manager, CH_Collection *parent = nullptr, const char *name = "");
    virtual ~CH_Collection();
    CH_Collection(const CH_Collection &) = delete;
    CH_Collection &operator=(const CH_Collection &) = delete;

    CH_Manager *getManager() const { return myManager; }
    CH_Collection *getParent() const { return myParent; }
    const char *getName() const { return myName; }
    void setName(const char *name) { myName = name; }
    /// "/" followed by the names from the top collection down; a collection
    /// without parent is the root, "/".
    virtual void getFullPath(UT_String &path) const;

    /// The local variables, ended by an entry with a null name.
    static const CH_LocalVariable *getLocalVariableTable();
    /// The local variable of a name, or null.
    const CH_LocalVariable *getLocalVariable(const char *name) const;

    /// Table 0: the manager's global variables; table 1: the local ones.
    virtual float getVariableValue(int table, int id, int thread);
    virtual void getVariableValue(int table, int id, UT_String &value, int thread);
    virtual void *getVariableData(int table, int id, int thread);

    /// The sink of every change event about this collection's channels (and,
    /// for the root collection, about groups and scope). The base records
    /// that something changed; hosts override it to tell their editors.
    virtual void setChanged(CH_CHANGE_TYPE type, void *data);
    bool getChanged() const { return myChanged; }
    void clearChanged() { myChanged = false; }
    /// Exposed collections take part in scope and groups (off at construction).
    bool getExpose() const { return myExpose; }
    void setExpose(bool on) { myExpose = on; }
    /// External collections are never scoped (off at construction).
    bool getExternal() const { return myExternal; }
    void setExternal(bool on) { myExternal = on; }
    /// Told when a thread evaluating this collection reads a global
    /// parameter for the first time; the base does nothing.
    virtual void addedParamDependency() {}

    /// The name "CH" gives when no channel is being evaluated.
    const char *getEvalChannelName() const { return myEvalChannelName; }

private:
    CH_Manager *myManager;
    CH_Collection *myParent;
    UT_String myName;
    UT_String myEvalChannelName;
    bool myChanged = false;
    bool myExpose = false;
    bool myExternal = false;
};

#endif
