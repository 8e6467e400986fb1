#ifndef CH_MANAGER_H
#define CH_MANAGER_H

#include <ch/expr/CH_ExprLanguage.h>
#include <ch/expr/CH_LocalVariable.h>
#include <ch/manager/CH_ChangeType.h>
#include <ch/manager/CH_ChannelRef.h>
#include <ch/manager/CH_ChannelRefHashTable.h>

#include <ut/UT_IntArray.h>
#include <ut/UT_PtrArray.h>
#include <ut/UT_RefArray.h>
#include <ut/UT_ScopeExit.h>
#include <ut/UT_String.h>
#include <ut/UT_StringArray.h>
#include <ut/UT_SymbolTable.h>
#include <ut/UT_ThreadSlots.h>
#include <ut/UT_Vector3.h>
#include <ut/UT_XformOrder.h>

#include <memory>
#include <mutex>
#include <ostream>
#include <set>
#include <shared_mutex>
#include <string>
#include <unordered_map>
#include <vector>

class CH_Channel;
class CH_Collection;
class CH_ExprDefine;
class CH_Group;
class CH_ScriptAccessManager;
class CH_TimeGroup;

/// The channel library's one global object: the scene's time model and
/// user settings, the root collection, and the per-thread evaluation
/// context. Reached through getContext(); the first manager constructed
/// becomes current.
///
/// The settings are plain fields: the host's main thread writes them,
/// evaluating threads read them. The evaluation context is per thread.
class CH_Manager
{
public:
    /// With initLibrary non-zero, the first such manager registers the
    /// library's expression functions, types and variables with the engine.
    explicit CH_Manager(int initLibrary = 1);
    virtual ~CH_Manager();
    CH_Manager(const CH_Manager &) = delete;
    CH_Manager &operator=(const CH_Manager &) = delete;

    // ---- Context ------------------------------------------------------------
    static CH_Manager *getContext();
    static bool getContextExists();
    virtual void setContext();
    /// The host's hook around each segment evaluation on a thread; none by
    /// default.
    virtual CH_ScriptAccessManager *getAccessManager(int /*thread*/) { return nullptr; }

    // ---- Defaults ----------------------------------------------------------
    static float getDefaultFPS();
    static float getDefaultLength(float fps);
    static float getDefaultLengthFrames(float fps);

    // ---- Time model --------------------------------------------------------
    float getSamplesPerSec() const { return myFPS; }
    float getSecsPerSample() const { return 1.0f / myFPS; }
    void setSamplesPerSec(float fps);
    void setRawSamplesPerSec(float fps);
    float getNumSamples() const { return myNumSamples; }
    void setRawNumSamples(int n);
    float getGlobalStart() const { return myStart; }
    float getGlobalEnd() const { return myEnd; }
    void setGlobalTime(float a, float b);
    int getGlobalStartFrame() const;
    int getGlobalEndFrame() const;
    void getSampleRange(float &first, float &last) const { first = myRangeFirst; last = myRangeLast; }
    void setSampleRange(float a, float b);
    float getRealTimeFactor() const { return myRealTimeFactor; }
    void setRealTimeFactor(float f) { myRealTimeFactor = f; }
    float getSampleStep() const { return mySampleStep; }
    void setSampleStep(float s) { mySampleStep = s; }
    float getTolerance() const { return myTolerance; }
    float getTimeCodeOffset(float) const { return myTimeCodeOffset; }
    void setTimeCodeOffset(float t) { myTimeCodeOffset = t; }

    // ---- Conversions -------------------------------------------------------
    float getTime(float sample) const;
    float getSampleRaw(float t) const;
    float getSample(float t) const;
    int getFrame(float t) const;
    float getTimeDelta(float samples) const;
    float getSampleDelta(float t) const;
    float getSnapToFrameTime(float t) const;
    float getSnapSample(float sample) const;
    bool getIsAtFrame(float t) const;
    float getSnapToFrameDelta(float t, float delta) const;
    static float niceNumber(float x, int digits);

    int setTimeCode(const char *text, float &t) const;
    void getTimeCode(char *buffer, float t) const;

    void parseUnitsString(const char *units, float &lengthExp, float &massExp) const;
    float scaleToMKS(const char *units) const;
    float scaleFromMKS(const char *units) const;

    int niceFrameSeparation(float target, int minimum) const;

    void resetChannelOptions();
    void resetPlayback();

    // ---- Flags -------------------------------------------------------------
    bool getIntegerFrameFlag() const { return myFlags & theIntegerFrame; }
    void setIntegerFrameFlag(bool on) { setFlag(theIntegerFrame, on); }
    bool getRealTimeFlag() const { return myFlags & theRealTime; }
    void setRealTimeFlag(bool on) { setFlag(theRealTime, on); }
    bool getRealTimeDisableSkip() const { return myFlags & theRealTimeDisableSkip; }
    void setRealTimeDisableSkip(bool on) { setFlag(theRealTimeDisableSkip, on); }
    bool getHoldFlag() const { return myFlags & theHold; }
    void setHoldFlag(bool on) { setFlag(theHold, on); }
    bool getRestrictRangeFlag() const { return myFlags & theRestrictRange; }
    void setRestrictRangeFlag(bool on) { setFlag(theRestrictRange, on); }
    bool getShowRangeFlag() const { return myFlags & theShowRange; }
    void setShowRangeFlag(bool on) { setFlag(theShowRange, on); }
    bool getShowTicksFlag() const { return myFlags & theShowTicks; }
    void setShowTicksFlag(bool on) { setFlag(theShowTicks, on); }
    bool getShowAudioFlag() const { return myFlags & theShowAudio; }
    void setShowAudioFlag(bool on) { setFlag(theShowAudio, on); }
    bool getShowKeysFlag() const { return myFlags & theShowKeys; }
    void setShowKeysFlag(bool on) { setFlag(theShowKeys, on); }

    // ---- Settings ----------------------------------------------------------
    int getRawInterpolation() const { return myRawInterpolation; }
    void setRawInterpolation(int i) { myRawInterpolation = static_cast<short>(i); }
    const char *getDefaultExpression() const { return myDefaultExpression; }
    void setDefaultExpression(const char *text);
    const char *getDefaultRotationExpression() const { return myDefaultRotationExpression; }
    void setDefaultRotationExpression(const char *text);
    bool getAutoSplit() const { return myAutoSplit; }
    void setAutoSplit(bool on) { myAutoSplit = on; }
    const char *getDefaultSplitExpression() const { return myDefaultSplitExpression; }
    void setDefaultSplitExpression(const char *text) { myDefaultSplitExpression = text; }
    bool getAutoSlope() const { return myAutoSlope; }
    void setAutoSlope(bool on) { myAutoSlope = on; }
    float getDefaultSlope() const { return myDefaultSlope; }
    void setDefaultSlope(float s) { myDefaultSlope = s; }
    int getHoldLastKey() const { return myHoldLastKey; }
    void setHoldLastKey(bool on) { myHoldLastKey = on; }
    bool getAlwaysCommitKeyChange() const { return myAlwaysCommitKeyChange; }
    void setAlwaysCommitKeyChange(bool on) { myAlwaysCommitKeyChange = on; }
    bool getSegCacheStatus() const { return mySegCacheStatus; }
    void setSegCacheStatus(bool on) { mySegCacheStatus = on; }
    const char *getChanCreateKeyExpression() const { return myChanCreateKeyExpression; }
    void setChanCreateKeyExpression(const char *text) { myChanCreateKeyExpression = text; }
    float getAudioLevel() const { return myAudioLevel; }
    void setAudioLevel(float l) { myAudioLevel = l; }
    float getUnitLength() const { return myUnitLength; }
    void setUnitLength(float l) { myUnitLength = l; }
    float getUnitMass() const { return myUnitMass; }
    void setUnitMass(float m) { myUnitMass = m; }
    CH_ExprLanguage getDefaultExprLanguage() const { return myDefaultExprLanguage; }
    void setDefaultExprLanguage(CH_ExprLanguage l) { myDefaultExprLanguage = l; }
    CH_Collection *getRootCollection() const { return myRootCollection; }
    void setRootCollection(CH_Collection *root) { myRootCollection = root; }

    // ---- Evaluation context (per thread; thread 0 = the calling thread) ----
    void setEvalCollection(CH_Collection *collection, int thread);
    CH_Collection *getEvalCollection(int thread) const { return myEvalSlots.get(thread).collection; }
    /// The thread's evaluation-collection slot itself, for code that saves,
    /// sets and restores it on every evaluation.
    CH_Collection *&evalCollectionRef(int thread) { return myEvalSlots.get(thread).collection; }
    void setEvaluateTime(float t, int thread);
    double getEvaluateTime(int thread) const;
    double getEvaluateTime() const { return getEvaluateTime(0); }
    /// The nesting depth of back-quoted expression evaluation.
    int &exprDepth(int thread);
    /// Sets the thread's evaluation time in a manager (none: nothing to
    /// do), and its collection when one is given; the guard returned puts
    /// both back when it goes out of scope (the time through a float, as the
    /// time is set everywhere else).
    [[nodiscard]] static auto scopeEvalContext(CH_Manager *manager, float time,
                                               CH_Collection *collection, int thread)
    {
        chEvalSlot *slot = manager ? &manager->myEvalSlots.get(thread) : nullptr;
        const float saved_time = slot ? static_cast<float>(slot->time) : 0.0f;
        CH_Collection *const saved_collection = slot ? slot->collection : nullptr;
        if (slot)
        {
            slot->time = time;
            if (collection)
                slot->collection = collection;
        }
        return UT_ScopeExit([slot, saved_time, saved_collection] {
            if (!slot)
                return;
            slot->collection = saved_collection;
            slot->time = saved_time;
        });
    }

    // ---- Interpolation functions -------------------------------------------
    // What segment expressions call ("linear()", "bezier()", ...). Each reads
    // the segment being evaluated on the thread from the thread's evaluation
    // collection and returns the value at its local time; without an
    // evaluation collection they return 0. See docs/functions.md.
    float evalConstantFunc(int thread);
    float evalLinearFunc(int thread);
    float evalQlinearFunc(int thread);
    float evalCubicFunc(int thread);
    float evalSplineFunc(int thread);
    float evalQuinticFunc(int thread);
    float evalEaseFunc(int thread);
    float evalEaseinFunc(int thread);
    float evalEaseoutFunc(int thread);
    float evalEasepFunc(float p, int thread);
    float evalEaseinpFunc(float p, int thread);
    float evalEaseoutpFunc(float p, int thread);
    float evalBezierFunc(int thread);
    /// The rotation qlinear gives at u between two Euler rotations (degrees,
    /// as x, y, z, applied in order): shortest-arc slerp of their
    /// quaternions, cracked back into angles in the same order.
    static UT_Vector3 interpolateEulerDegrees(const UT_Vector3 &from, const UT_Vector3 &to, float u,
                                              const UT_XformOrder &order);

    // ---- Variables ---------------------------------------------------------
    /// The global variables, ended by an entry with a null name.
    static const CH_LocalVariable *getLocalVariableTable();
    /// The global variable of a name, or null.
    static const CH_LocalVariable *findGlobalVariable(const char *name);
    float getVariableValue(int id, int thread) const;
    int getIntegerVariableValue(int id, int thread) const;
    void getVariableValue(int id, UT_String &value, int thread) const;
    virtual bool getVariableString(const char *name, UT_String &value, int &timeDependent, int thread);

    // ---- Texts -------------------------------------------------------------
    static bool lookupVariable(const char *name, UT_String &value, int thread);
    static bool lookupExpression(const char *text, UT_String &value, int thread);
    static bool lookupVariableNoThread(const char *name, UT_String &value);
    static bool lookupExpressionNoThread(const char *text, UT_String &value);
    /// flags: 1 back-quoted expressions, 2 variables. Returns EV_FLAG_TIMEDEP when
    /// anything expanded depended on time.
    int expandString(const char *text, UT_String &out, float time, CH_Collection *collection,
                     int thread, int flags = 3);
    float evaluate(const char *text, float time, CH_Collection *collection, int *timeDependent,
                   int thread, CH_ExprLanguage language = CH_ORVISH);
    /// Returns 1 when the result depends on time, else 0.
    int evaluateString(const char *text, UT_String &out, float time, CH_Collection *collection,
                       int thread, CH_ExprLanguage language = CH_ORVISH);
    /// Operator-reference rewriting: not available yet; does nothing.
    void buildStringOpDependencies(const char *text, void *ref, CH_Collection *collection, int thread);
    int changeStringOpRef(UT_String &out, const char *in, const char *new_fullpath,
                          const char *old_fullpath, const char *old_cwd, const char *chan_name,
                          const char *old_chan_name, CH_Collection *collection, int thread);

    // ---- Defines -----------------------------------------------------------
    /// May run while other threads compile and evaluate expressions.
    void addExpressionDefine(const CH_ExprDefine &define);
    /// The define of a name, or null. A define, once added, stays at the
    /// same place as long as the manager lives.
    const CH_ExprDefine *findExpressionDefine(const char *name) const;

    // ---- Match, repeat and cycle functions --------------------------------------
    // Called by the expression functions of the same names; each reads the
    // thread's evaluation segment and gives 0 without one.
    float evalMatchFunc(int thread);
    float evalMatchinFunc(int thread);
    float evalMatchoutFunc(int thread);
    float evalVmatchFunc(int thread);
    float evalVmatchinFunc(int thread);
    float evalVmatchoutFunc(int thread);
    /// first and last are frame positions; the ...t forms take times.
    float evalRepeatFunc(float first, float last, int thread);
    float evalRepeattFunc(float first, float last, int thread);
    float evalCycleFunc(float first, float last, int thread);
    float evalCycletFunc(float first, float last, int thread);

    // ---- References (the host overrides these) -------------------------------
    virtual CH_Channel *getChRefChannel(const CH_ChannelRef &ref) const;
    virtual bool isOwnerExposed(const CH_ChannelRef &ref) const;
    virtual bool buildChanRef(CH_ChannelRef &ref, const char *path) const;
    virtual bool buildChanRef(CH_ChannelRef &ref, const CH_Channel *channel) const;
    virtual int compareChanRefs(const CH_ChannelRef &a, const CH_ChannelRef &b) const;
    virtual void getChanRefPath(const CH_ChannelRef &ref, UT_String &path, bool use_alias) const;

    // ---- Scope, display, selection and pinning ---------------------------------
    // One flag word per scoped reference (CH_FLAG_*). Every change is announced
    // to the root collection; blockModifyScope() defers the announcements of
    // a batch to its end.
    int getNumScopedChanRefs() const { return myScopeTable.entries(); }
    void scopeChanged(unsigned bits, bool send = true);
    void blockModifyScope(int block);
    int getScopeBlockDepth() const { return myScopeBlockDepth; }

    bool isChannelScoped(CH_Channel *channel) const;
    bool isChannelScoped(const CH_ChannelRef &ref) const;
    bool isChannelScoped(const char *path) const;
    unsigned getChannelFlags(const CH_ChannelRef &ref) const;
    bool isChannelDisplayed(const CH_ChannelRef &ref) const;
    bool isChannelDisplayed(const char *path) const;
    bool isChannelSelected(const CH_ChannelRef &ref) const;
    bool isChannelSelected(const char *path) const;
    void getScopedChanRefs(UT_RefArray<CH_ChannelRef> &refs, unsigned mask = 0,
                           bool sorted = false) const;
    void getSelectedScopedChanRefs(UT_RefArray<CH_ChannelRef> &refs, bool sorted, int mask);
    void getScopedChannels(UT_PtrArray<CH_Channel *> &channels, bool sorted);
    void getScopedChannelsKeyFrames(UT_IntArray &frames, int start, int end);

    bool scopeChannelInternal(const CH_ChannelRef &ref, bool on);
    bool scopeChannelInternal(CH_Channel *channel, bool on);
    void scopeChannel(const CH_ChannelRef &ref, bool on);
    void scopeChannel(const char *path, bool on);
    void setChannelFlags(const CH_ChannelRef &ref, unsigned mask, bool on, bool send = true);
    void displayChannel(const CH_ChannelRef &ref, bool send = true);
    void displayChannel(const char *path, bool send = true);
    void undisplayChannel(const CH_ChannelRef &ref, bool send = true);
    void undisplayChannel(const char *path, bool send = true);
    void selectChannel(const CH_ChannelRef &ref, bool send = true);
    void selectChannel(const char *path, bool send = true);
    void deselectChannel(const CH_ChannelRef &ref, bool send = true);
    void deselectChannel(const char *path, bool send = true);
    void displayAllScopedChannels(bool send = true);
    void selectAllScopedChannels(bool send = true);
    void pinAllScopedChannels(bool send = true);
    void clearDisplayedChannels(bool send = true);
    void clearSelectedChannels(bool send = true);
    void displaySelectedScopedChannels(bool send = true);
    void pinChannels(UT_RefArray<CH_ChannelRef> refs, bool send = true);
    void unpinChannels(UT_RefArray<CH_ChannelRef> refs, bool send = true);
    void unpinAllScopedChannels(bool send = true);
    void togglePinAllScopedChannels();
    void togglePinScopedChannels(UT_RefArray<CH_ChannelRef> refs);
    void pinSelectedChannels(bool send, int mask);
    void unpinSelectedChannels(bool send, int mask);
    void clearChannelScope();
    void unscopeChannelsWithNodeId(int node_id, bool force);

    // ---- Pending channels ----------------------------------------------------
    void addPendingChannel(CH_Channel *channel);
    void removePendingChannel(CH_Channel *channel);
    void getPendingChannels(UT_PtrArray<CH_Channel *> &channels) const;
    void clearPendingChannels();

    // ---- Channel groups --------------------------------------------------------
    /// The top of the group tree: always present, never deleted.
    CH_Group *getTopGroup() const { return myTopGroup.get(); }
    /// Descends one subgroup per "/"-separated component from start (the
    /// top group when null); null as soon as a component is missing.
    CH_Group *findGroup(const char *path, bool create = false, CH_Group *start = nullptr);
    static bool makeGroupNameValid(UT_String &name);
    static bool makeGroupPathValid(UT_String &path);
    /// The current group (kept as a path, so it survives re-creation).
    CH_Group *getCurrentGroup();
    void updateCurrentGroup(CH_Group *group, void *data, bool send = true);
    UT_PtrArray<CH_Group *> getSelectedGroups();
    void updateGroupSelection(const UT_PtrArray<CH_Group *> &groups, void *data, bool send = true);
    /// Appends the live channels of the groups whose paths match the
    /// pattern (a matched group's subgroups are not searched again; each
    /// group's channels include its subgroups'), the groups last to first.
    /// Returns the number appended.
    int findChannelsFromGroups(UT_PtrArray<CH_Channel *> &channels, const char *pattern);
    void channelCreated(const CH_Channel *) {}
    void channelDeleted(const CH_Channel *) {}
    /// A hook for hosts that keep node paths in groups; nothing here.
    void renameOpInGroups(const char *, const char *) {}

    // ---- Time groups -------------------------------------------------------
    void addTimeGroup(CH_TimeGroup *group, bool unique = true, bool force = false);
    void renameTimeGroup(CH_TimeGroup *group, const char *name, bool force = false);
    int getTimeGroupIdx(const char *name) const;
    CH_TimeGroup *getTimeGroup(const char *name);
    const CH_TimeGroup *getTimeGroup(const char *name) const;
    /// The time groups, sorted by name where added with unique names.
    const UT_PtrArray<CH_TimeGroup *> &getTimeGroups() const { return myTimeGroups; }
    void destroyTimeGroup(int index);
    void destroyTimeGroup(const CH_TimeGroup *group);
    /// Announces a change of the time groups to the root collection.
    void timeGroupsChanged();

    // ---- Global parameters ---------------------------------------------------
    // Named values published under an owner collection and read by others.
    // Reading walks from the reader up its parents; a parameter found nowhere
    // is created at the reader from the default.
    int setGlobalFloatParam(const char *name, float value, CH_Collection *owner);
    int setGlobalStringParam(const char *name, const char *value, CH_Collection *owner);
    void getGlobalParamF(const char *name, CH_Collection *collection, float &value,
                         float default_value, int thread, bool add_dependency);
    void getGlobalParamS(const char *name, CH_Collection *collection, UT_String &value,
                         const char *default_value, int thread, bool add_dependency);
    void dirtyOrphanGlobalParamDependents(const char *name, CH_Collection *collection,
                                          bool recurse, std::set<CH_Collection *> *done);
    void removeParamDependency(CH_Collection *collection);
    void removeGlobalParamOwner(CH_Collection *collection);
    void dumpGlobalParams(std::ostream &os) const;
    bool getIsSettingGlobalParam() const { return myIsSettingGlobalParam; }
    bool getIsSettingGuideParam() const { return myIsSettingGuideParam; }
    void setIsSettingGuideParam(bool on) { myIsSettingGuideParam = on; }

protected:
    void initExpressionLibrary();
    void initLibraryGlue();

private:
    enum : unsigned
    {
        theIntegerFrame = 0x1,
        theRealTime = 0x2,
        theRealTimeDisableSkip = 0x4,
        theHold = 0x8,
        theRestrictRange = 0x10,
        theShowRange = 0x20,
        theShowTicks = 0x40,
        theShowAudio = 0x80,
        theShowKeys = 0x100,
        theConstructed = 0x200 ///< set at construction; read by nothing
    };
    void setFlag(unsigned bit, bool on) { myFlags = on ? (myFlags | bit) : (myFlags & ~bit); }
    void recomputeEnd();

    struct chEvalSlot
    {
        CH_Collection *collection = nullptr;
        double time = 0.0;
        int depth = 0;
    };

    float myFPS = 24.0f;
    float myNumSamples = 240.0f;
    float myStart = 0.0f;
    float myEnd = 0.0f;
    float myRangeFirst = 1.0f;
    float myRangeLast = 240.0f;
    float myRealTimeFactor = 1.0f;
    float mySampleStep = 1.0f;
    float myTolerance = 1.0f / 2400.0f;
    float myTimeCodeOffset = 0.0f;
    unsigned myFlags = 0;
    short myRawInterpolation = 1;
    UT_String myDefaultExpression;
    UT_String myDefaultRotationExpression;
    bool myAutoSplit = true;
    UT_String myDefaultSplitExpression;
    bool myAutoSlope = true;
    float myDefaultSlope = 0.0f;
    bool myHoldLastKey = false;
    bool myAlwaysCommitKeyChange = true;
    bool mySegCacheStatus = false;
    UT_String myChanCreateKeyExpression;
    float myAudioLevel = 1.0f;
    float myUnitLength = 1.0f;
    float myUnitMass = 1.0f;
    CH_ExprLanguage myDefaultExprLanguage = CH_ORVISH;
    CH_Collection *myRootCollection = nullptr;
    UT_StringArray mySelectedGroupPaths;
    UT_String myCurrentGroupPath;
    std::unique_ptr<UT_SymbolTable<CH_ExprDefine *>> myDefines;
    /// Defines are added while other threads compile texts (which reads
    /// them); evaluation itself never reads them.
    mutable std::shared_mutex myDefinesLock;
    UT_ThreadSlots<chEvalSlot, 64> myEvalSlots;

    // Scope: see CH_ManagerScope.cpp.
    void signalScope(unsigned bits, bool send);
    void sendScopeEvents(unsigned bits);
    void collectExposed(UT_RefArray<CH_ChannelRef> &refs, unsigned mask) const;
    void orIntoAll(unsigned bit, bool send);
    void clearExposedBit(unsigned bit, bool send);
    CH_ChannelRefHashTable myScopeTable;
    UT_PtrArray<CH_Channel *> mySortedScoped;
    bool mySortedScopedValid = false;
    int myScopeBlockDepth = 0;
    unsigned myPendingScopeChanges = 0;
    std::set<CH_Channel *> myPendingChannels;

    std::unique_ptr<CH_Group> myTopGroup;
    UT_PtrArray<CH_TimeGroup *> myTimeGroups;
    void uniqueTimeGroupName(UT_String &name, bool force) const;

    struct chGlobalParam
    {
        std::string name;
        CH_Collection *owner = nullptr;
        float fval = 0.0f;
        UT_String sval;
        bool hasFloat = false;
        bool hasString = false;
        std::vector<CH_Collection *> dependents;
    };
    using chGlobalParamKey = std::pair<std::string, CH_Collection *>;
    struct chGlobalParamKeyHash
    {
        std::size_t operator()(const chGlobalParamKey &k) const;
    };
    chGlobalParam *findGlobalParam(const char *name, CH_Collection *owner) const;
    chGlobalParam *lookupGlobalParam(const char *name, CH_Collection *collection) const;
    chGlobalParam *createGlobalParam(const char *name, CH_Collection *owner);
    template <typename Store> int setGlobalParam(const char *name, CH_Collection *owner, Store store);
    template <typename Read>
    void readGlobalParam(const char *name, CH_Collection *collection, int thread,
                         bool add_dependency, Read read);
    std::unordered_map<chGlobalParamKey, std::unique_ptr<chGlobalParam>, chGlobalParamKeyHash> myGlobalParams;
    mutable chGlobalParam *myLastGlobalParam = nullptr;
    mutable std::mutex myGlobalParamLock;
    bool myIsSettingGlobalParam = false;
    bool myIsSettingGuideParam = false;
};

/// The bits of a scope flag word.
enum : unsigned
{
    CH_FLAG_SCOPED = 1,
    CH_FLAG_SELECTED = 2,
    CH_FLAG_PINNED = 4,
    CH_FLAG_DISPLAYED = 8,
    CH_FLAG_TEMPLATED = 16
};
/// "Scoped", "Selected", "Pinned", "Displayed", "Templated", by bit number.
extern const char *const chScopeFlagNames[5];
/// Four characters, for the scoped, pinned, displayed and templated bits:
/// the first letter of the name when set, else a space.
void CHdisplayFlags(unsigned flags, std::ostream &os);

/// Writes the reference's path as the current manager's getChanRefPath
/// gives it (nothing without a manager).
std::ostream &operator<<(std::ostream &os, const CH_ChannelRef &ref);

float CHgetTimeFromFrame(float frame);
int CHgetFrameFromTime(float t);
float CHgetSampleFromTime(float t);

#endif
