#ifndef CH_COLLECTION_H
#define CH_COLLECTION_H

#include <ch/expr/CH_ExprLanguage.h>
#include <ch/expr/CH_LocalVariable.h>
#include <ch/manager/CH_ChangeType.h>

#include <ut/UT_PtrArray.h>
#include <ut/UT_String.h>
#include <ut/UT_ThreadSlots.h>

#include <memory>

class CH_Channel;
class CH_Manager;
class CH_Segment;

/// The channels of one node, and the local variables its expressions see.
///
/// It owns its channels, and during evaluation it is what expressions see:
/// per thread, the channel being evaluated (whose segment gives the local
/// variables IV, OV, LT, ...), answered through the overridable
/// getVariableValue operations. Hosts derive from it to hear of changes
/// (setChanged), to grant or refuse edits (canAccess) and to show errors
/// (reportError).
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

    // ---- Channels ------------------------------------------------------------------
    /// Creates a channel of that name (null when the name is taken or empty).
    CH_Channel *addChannel(const char *name, float default_value = 0.0f,
                           const char *default_string = nullptr);
    CH_Channel *getChannel(const char *name) const;
    const UT_PtrArray<CH_Channel *> &getChannels() const { return myChannels; }
    int getNChannels() const { return myChannels.entries(); }
    /// Deletes the channel (announced as CH_CHANNELS_DELETED first).
    void deleteChannel(CH_Channel *channel);

    CH_ExprLanguage getExprLanguage() const { return myExprLanguage; }
    void setExprLanguage(CH_ExprLanguage language) { myExprLanguage = language; }
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
    /// Puts 'to' in 'from's place in the list (when 'from' is listed).
    void replaceChannel(const CH_Channel *from, CH_Channel *to);

    CH_Manager *myManager;
    CH_Collection *myParent;
    UT_String myName;
    UT_String myEvalChannelName;
    UT_PtrArray<CH_Channel *> myChannels;
    CH_ExprLanguage myExprLanguage = CH_ORVISH;
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
