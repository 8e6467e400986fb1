#ifndef CH_COLLECTION_H
#define CH_COLLECTION_H

#include <ch/expr/CH_ExprLanguage.h>
#include <ch/expr/CH_LocalVariable.h>
#include <ch/manager/CH_ChangeType.h>

#include <ut/UT_PtrArray.h>
#include <ut/UT_String.h>
#include <ut/UT_SymbolTable.h>
#include <ut/UT_ThreadSlots.h>
#include <ut/UT_XformOrder.h>

#include <memory>
#include <vector>

class CH_Channel;
class CH_Manager;
class CH_Segment;
class OP_Channels;

/// What channelFind calls for each channel that matches.
using CH_ChannelFindCallback = void (*)(CH_Channel *channel, void *data);

/// The channels of one node, and the local variables its expressions see.
///
/// It owns its channels, and during evaluation it is what expressions see:
/// per thread, the channel being evaluated (whose segment gives the local
/// variables IV, OV, LT, ...), answered through the overridable
/// getVariableValue operations. Hosts derive from it to hear of changes
/// (setChanged), to grant or refuse edits (canAccess) and to show errors
/// (reportError), and to resolve the paths of other collections
/// (findCollection).
///
/// Names: a channel is found by its name or its alias, both held in one
/// hash table (no name equals another channel's name or alias). Rename and
/// alias channels through the collection (rename, setChannelAlias): a
/// channel's own setName/setAlias bypass the table.
///
/// A host that overrides setChanged should call clearAndDestroy in its own
/// destructor: the deletion events of the channels a collection still holds
/// when the base destructor runs reach only the base setChanged.
class CH_Collection
{
public:
    CH_Collection(CH_Manager *manager, CH_Collection *parent = nullptr, const char *name = "");
    virtual ~CH_Collection();
    CH_Collection(const CH_Collection &) = delete;
    CH_Collection &operator=(const CH_Collection &) = delete;

    /// Sets the manager of a collection constructed without one (its
    /// expression language becomes the manager's default).
    void initManager(CH_Manager *manager);
    CH_Manager *getManager() const { return myManager; }
    CH_Collection *getParent() const { return myParent; }
    /// The outermost collection: the last parent.
    CH_Collection *getRoot();
    const CH_Collection *getRoot() const;
    const char *getName() const { return myName; }
    void setName(const char *name) { myName = name; }
    /// "/" followed by the names from the top collection down; a collection
    /// without parent is the root, "/".
    virtual void getFullPath(UT_String &path) const;
    /// The collection's path, "/", then the channel's name (its alias when
    /// use_alias is set and it has one).
    void getFullPath(const CH_Channel *channel, UT_String &path, bool use_alias) const;
    /// The collection a path names, relative to this one or absolute; the
    /// host's subclass resolves paths. The base knows only itself ("" and
    /// ".") and its parent (".."); anything else gives null.
    virtual CH_Collection *findCollection(const char *path) const;
    /// A number that tells this collection from every other of the process
    /// (given at construction; hosts may answer their node's id instead).
    virtual int getUniqueId() const { return myUniqueId; }
    /// The host's channel container behind this collection; the base has none.
    virtual OP_Channels *castToOPChannels() { return nullptr; }
    /// The rotation order of the node's transform (qlinear() interpolates in
    /// it); the base answers the order set with setXformOrder, XYZ at first.
    virtual UT_XformOrder getXformOrder() const { return myXformOrder; }
    void setXformOrder(const UT_XformOrder &order) { myXformOrder = order; }

    /// The local variables, ended by an entry with a null name.
    static const CH_LocalVariable *getLocalVariableTable();
    /// The local variable of a name, or null: the collection's own table,
    /// then the tables added, in the order added.
    const CH_LocalVariable *getLocalVariable(const char *name) const;
    /// Adds a table of variables (ended by an entry with a null name; the
    /// caller keeps it alive) that expressions of this collection see after
    /// the collection's own; the collection answers them through
    /// getVariableValue with table 2 for the first table added, 3 for the
    /// next, ... Compiled expressions of the collection look their variables
    /// up again. Dynamic variables are the same, but their values change
    /// with time: reading one makes an expression time dependent.
    void addLocalVariables(const CH_LocalVariable *table);
    void addDynamicVariables(const CH_LocalVariable *table);
    /// The variable a name means in this collection's expressions: the
    /// table number (1 the own, 2 and up the added ones) and the entry; false
    /// when none of the collection's tables has it (the manager's global
    /// table, number 0, comes after, see CH_Manager::findGlobalVariable).
    /// 'dynamic' tells whether the entry came from a dynamic table.
    bool resolveVariable(const char *name, int &table, const CH_LocalVariable *&variable,
                         bool &dynamic) const;

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
    /// Stops this collection depending on the manager's global parameters.
    void removeParamDependency();

    // ---- Channels ------------------------------------------------------------------
    /// A null name is not valid; the empty name is; otherwise every
    /// character must be an ASCII letter or digit or one of "-_:".
    static bool isValidChannelName(const char *name);

    /// The channel of a name or alias; null when there is none.
    CH_Channel *getChannel(const char *name) const { return name ? myNames.findSymbol(name) : nullptr; }
    CH_Channel *getChannel(const UT_String &name) const { return getChannel(name.c_str()); }
    /// By position in the list (insertion order); null out of range.
    CH_Channel *getChannel(int index) const;
    /// "path/name": the part before the last "/" resolved by findCollection,
    /// the name looked up there; a path without "/" is a name here.
    CH_Channel *findChannel(const char *path) const;
    /// findChannel, adding the channel to the resolved collection when it
    /// has none of that name; null when the collection does not resolve.
    CH_Channel *findOrCreateChannel(const char *path);

    const UT_PtrArray<CH_Channel *> &getChannels() const { return myChannels; }
    int getNChannels() const { return myChannels.entries(); }
    /// Appends the channels whose names match the pattern (several patterns
    /// separated by commas or blanks); "@groups" appends the channels of
    /// the manager's groups matching "groups" instead. Visits last to first
    /// when environment control 113 is set. Returns the number appended.
    int getChannels(UT_PtrArray<CH_Channel *> &channels, const char *pattern) const;
    /// Appends every channel, or every channel's name; the int is unused.
    int getChannels(UT_PtrArray<CH_Channel *> &channels, int = 0) const;
    int getChannelNames(UT_PtrArray<const char *> &names, int = 0) const;
    int getChannelCount(int = 0) const { return myChannels.entries(); }

    /// Creates a channel of that name. A name already taken (as a name or
    /// an alias) gives that channel, unchanged and unannounced; an invalid
    /// name gives null. A new channel is announced as CH_CHANNELS_ADDED.
    CH_Channel *addChannel(const char *name, float default_value = 0.0f,
                           const char *default_string = nullptr);
    /// Adopts a channel made elsewhere under its own name and announces it.
    /// Null (and the channel untouched) when its name is invalid or taken
    /// here, or when another collection still lists it.
    CH_Channel *addChannel(CH_Channel *channel);
    /// A copy of the channel, owned and listed here under the same name;
    /// null when that name is taken here.
    virtual CH_Channel *dupChannel(const CH_Channel &from);
    /// The same for the channel a path names (see findChannel).
    CH_Channel *dupChannel(const char *path);

    /// Deleting a channel announces CH_CHANNELS_DELETED first, then removes
    /// its name and alias, destroys it and takes it off the list.
    void deleteChannel(unsigned index);
    void deleteChannel(CH_Channel *channel);
    void deleteChannel(const char *name);
    void deleteChannels();
    void clearAndDestroy() { deleteChannels(); }

    /// Renames a channel: 0 (nothing changed) when there is no channel of
    /// old_name, when access is refused, when new_name is invalid or taken
    /// by another channel's name or alias, or when new_alias is refused (see
    /// setChannelAlias). A new_alias that is null, empty or equal to
    /// new_name leaves the channel without alias. 1 on success.
    virtual int rename(const char *old_name, const char *new_name, const char *new_alias = nullptr);
    int rename(CH_Channel *channel, const char *new_name, const char *new_alias = nullptr);
    /// Told after a rename; the base does nothing.
    virtual void notifyChannelRenameDependents(const char *, const char *) {}
    /// Sets (replaces) a channel's alias. The alias must be a valid name
    /// and not another channel's name or alias; "" removes the alias, and
    /// an alias equal to the channel's name is stored as none. False, with
    /// nothing changed, when refused (access included).
    bool setChannelAlias(CH_Channel &channel, const char *alias);

    // ---- Queries --------------------------------------------------------------------
    /// The nearest key time over all channels beyond the tolerance from time
    /// in the direction (CH_Channel::findKey); time itself when none or the
    /// direction is 0. Of two channels as near, the later-listed one's
    /// key is kept.
    float findKey(float time, int direction) const;
    /// Evaluates every channel at the thread's evaluation time and gives
    /// the range the channels span: the least start and the greatest end.
    /// Channels of a single constant key (no spline knots) do not count.
    /// time_dependent is set when any channel is time dependent. False when
    /// no channel counted (start and end then unchanged).
    bool getCollectionRange(float &start, float &end, bool &time_dependent, int thread);
    /// Whether any channel's expression holds the text.
    bool findString(const char *text, bool whole_word, bool case_sensitive) const;
    /// Replaces the text in every channel's expressions (announcing each
    /// channel changed); returns the number of replacements.
    int changeString(const char *from, const char *to, bool whole_word, int thread);
    /// Calls back for each channel whose name or full path matches the
    /// pattern (several patterns separated by commas or blanks); returns
    /// the number of channels called back for.
    int channelFind(const char *pattern, CH_ChannelFindCallback callback, void *data);

    CH_ExprLanguage getExprLanguage() const { return myExprLanguage; }
    /// Sets the language, and switches every segment whose expression is
    /// just an animation function call ("linear()", "bezier()", ...) to it;
    /// other expressions keep their language.
    void setExprLanguage(CH_ExprLanguage language);
    float getTolerance() const;
    float getGlobalStart() const;
    float getGlobalEnd() const;

    /// Whether an edit (mask 0x92 for channel edits) may go ahead; the base
    /// grants everything.
    virtual int canAccess(unsigned mask) const;
    virtual int canAccessChannel(unsigned mask, const CH_Channel *channel) const;
    /// Where evaluation errors go: the base posts them to the error list.
    virtual void reportError(const char *table, int code, const char *message);

    // ---- Evaluation -----------------------------------------------------------------
    /// Evaluate a channel of this collection at a global time, with this
    /// collection as the thread's evaluation collection.
    float evaluate(CH_Channel *channel, float time, bool ignore_disabled, int thread);
    void evaluate(CH_Channel *channel, float from, float to, float *out, int count,
                  bool ignore_disabled, bool use_cache, int thread);
    void evaluateString(UT_String &result, CH_Channel *channel, float time, int thread);

    /// The thread's evaluation channel and its name; the second form hands
    /// back the previous pair so the caller can restore it.
    void setEvalChannel(CH_Channel *channel, int thread, const char *name);
    void setEvalChannel(CH_Channel *channel, const char *name, CH_Channel *&prev_channel,
                        const char *&prev_name, int thread);
    CH_Channel *getEvalChannel(int thread) const;
    void getEvalChannelAndName(CH_Channel *&channel, const char *&name, int thread) const;

    /// The in value of the thread's evaluation segment (0 without one).
    float getGlueIV(int thread);
    /// Local time, start, end, in and out value of the evaluation segment:
    /// all channel-local.
    void getGlueTime(float &t, float &start, float &end, float &in_value, float &out_value,
                     int thread);
    /// The evaluation segment itself (null without one) and the local time
    /// (0 without one), from one lookup: for functions that read several of
    /// its numbers.
    CH_Segment *getGlueSegment(float &t, int thread);
    /// Slopes and accels of the evaluation segment; null pointers are skipped.
    void getGlueSlope(float *in_slope, float *out_slope, float *in_accel, float *out_accel,
                      int thread);

    /// The name "CH" gives when no channel is being evaluated.
    const char *getEvalChannelName() const { return myEvalChannelName; }

private:
    friend class CH_Channel; // saves and restores its evaluation slot directly

    struct chEvalSlot
    {
        CH_Channel *channel = nullptr;
        const char *name = nullptr;
    };
    /// Reports the thread's engine error for a channel and clears it.
    void evaluationError(const CH_Channel *channel, int err, int thread);
    void checkEvaluationError(const CH_Channel *channel, int thread);
    CH_Segment *evalSegment(int thread) const;
    /// Puts 'to' in 'from's place in the list and the name table (when
    /// 'from' is listed): 'to' has just taken 'from's name and alias.
    void replaceChannel(const CH_Channel *from, CH_Channel *to);
    /// After a swap within this collection: the names 'channel' now carries
    /// lead to it, when it is listed and they led to 'was'.
    void reenterNames(CH_Channel *channel, const CH_Channel *was);

    /// Lists a channel whose name is valid and free, enters its name (and
    /// alias) and announces it.
    CH_Channel *adopt(CH_Channel *channel);
    /// Whether a name is free for a channel: no other channel has it as
    /// name or alias.
    bool isNameFree(const char *name, const CH_Channel *channel) const;
    /// Resolves the rotation triples a name belongs to (see qlinear()):
    /// the channels named like it with a last letter x, y or z.
    void relinkRotationTriple(const char *name);
    void relinkRotationChannel(CH_Channel *channel);
    void addVariables(const CH_LocalVariable *table, bool dynamic);

    struct chVariableTable
    {
        const CH_LocalVariable *table;
        bool dynamic;
    };

    CH_Manager *myManager;
    CH_Collection *myParent;
    UT_String myName;
    UT_String myEvalChannelName;
    UT_PtrArray<CH_Channel *> myChannels;
    /// Names and aliases of the channels.
    UT_SymbolTable<CH_Channel *> myNames;
    std::vector<chVariableTable> myVariableTables;
    CH_ExprLanguage myExprLanguage = CH_ORVISH;
    UT_XformOrder myXformOrder;
    int myUniqueId;
    /// Every evaluation writes its thread's slot, and threads often evaluate
    /// channels of one collection side by side: a cache line per slot keeps
    /// them from contending for one line.
    mutable UT_ThreadSlots<chEvalSlot, 64> myEvalSlots;
    bool myChanged = false;
    bool myExpose = false;
    bool myExternal = false;
};

// The glue accessors are read by every interpolation function call: inline.
#include <ch/channel/CH_Channel.h>

inline CH_Segment *CH_Collection::evalSegment(int thread) const
{
    CH_Channel *c = myEvalSlots.get(thread).channel;
    return c ? c->getEvaluationSegment(thread) : nullptr;
}

inline CH_Segment *CH_Collection::getGlueSegment(float &t, int thread)
{
    t = 0.0f;
    CH_Channel *c = myEvalSlots.get(thread).channel;
    return c ? c->getEvaluationSegment(thread, t) : nullptr;
}

inline float CH_Collection::getGlueIV(int thread)
{
    CH_Segment *s = evalSegment(thread);
    return s ? s->getInValue() : 0.0f;
}

inline void CH_Collection::getGlueTime(float &t, float &start, float &end, float &in_value,
                                       float &out_value, int thread)
{
    CH_Channel *c = myEvalSlots.get(thread).channel;
    CH_Segment *s = c ? c->getEvaluationSegment(thread, t) : nullptr;
    if (!s)
    {
        t = start = end = in_value = out_value = 0.0f;
        return;
    }
    start = s->getStart();
    end = s->getEnd();
    in_value = s->getInValue();
    out_value = s->getOutValue();
}

inline void CH_Collection::getGlueSlope(float *in_slope, float *out_slope, float *in_accel,
                                        float *out_accel, int thread)
{
    CH_Segment *s = evalSegment(thread);
    if (in_slope)
        *in_slope = s ? s->getInSlope() : 0.0f;
    if (out_slope)
        *out_slope = s ? s->getOutSlope() : 0.0f;
    if (in_accel)
        *in_accel = s ? s->getInAccel() : 0.0f;
    if (out_accel)
        *out_accel = s ? s->getOutAccel() : 0.0f;
}

#endif
