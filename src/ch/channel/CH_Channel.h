#ifndef CH_CHANNEL_H
#define CH_CHANNEL_H

#include <ch/channel/CH_ChannelBehavior.h>
#include <ch/channel/CH_Segment.h>
#include <ch/channel/CH_SegmentIndex.h>
#include <ch/expr/CH_ExprLanguage.h>
#include <ch/manager/CH_ChangeType.h>

#include <ut/UT_PtrArray.h>
#include <ut/UT_String.h>
#include <ut/UT_ThreadSlots.h>

#include <cstdint>
#include <vector>

class CH_Collection;
class CH_FullKey;
class CH_Key;
class CH_Manager;
class UT_FloatArray;
class UT_IntArray;

/// One animated parameter: segments in time order covering local time 0 to
/// the channel's length, plus a zero-length end segment holding the last
/// key. Evaluation works at any time: before the first key and from the
/// last key on, the left and right behaviours decide. Disable segments
/// freeze the value over disabled ranges. A channel with no keys gives its
/// default value (and default string) everywhere.
///
/// Evaluation may run on several threads at once; each thread has its own
/// evaluation slot (current segment and local time) for the expression
/// functions to read. Editing must not overlap evaluation of the same
/// channel. Two things write during evaluation and are therefore not for
/// concurrent use: the sample cache (when the manager's segment caching and
/// the channel's cache are on) and the refresh of a disabled range's value.
class CH_Channel
{
public:
    CH_Channel(CH_Collection *collection, const char *name, float default_value = 0.0f,
               const char *default_string = nullptr);
    /// A deep copy of from's contents, in another collection.
    CH_Channel(CH_Collection *collection, const CH_Channel &from);
    ~CH_Channel();
    CH_Channel(const CH_Channel &) = delete;
    CH_Channel &operator=(const CH_Channel &) = delete;

    // ---- Identity --------------------------------------------------------------
    CH_Collection *getCollection() const { return myCollection; }
    /// Points the channel at a collection (and its manager); the collection
    /// lists it (CH_Collection::addChannel does both).
    void setCollection(CH_Collection *collection);
    CH_Manager *getManager() const { return myManager; }
    float getTolerance() const;
    const char *getName() const { return myName; }
    void setName(const char *name) { myName = name; }
    /// The alias, or the name when there is none.
    const char *getAlias() const { return myAlias.isstring() ? myAlias.c_str() : myName.c_str(); }
    void setAlias(const char *alias) { myAlias = alias; }
    bool hasAlias() const { return myAlias.isstring(); }
    /// The rotation triple the channel belongs to, by axis (0 x, 1 y, 2 z):
    /// the channels of its collection named like it but for a last letter
    /// x, y or z; this channel at its own axis; null where one is missing
    /// (or when the name does not end in x, y or z). The collection resolves
    /// them whenever names change; qlinear() only reads them.
    CH_Channel *getRotationTriple(int axis) const { return myRotationTriple[axis]; }
    void setRotationTriple(CH_Channel *x, CH_Channel *y, CH_Channel *z)
    {
        myRotationTriple[0] = x;
        myRotationTriple[1] = y;
        myRotationTriple[2] = z;
    }
    void getFullPath(UT_String &path) const;
    CH_ExprLanguage getCollectionExprLanguage() const;
    /// Named exactly "rx", "ry" or "rz".
    bool isRotationChannel() const;
    /// Matches "name", or "obj/name" with one collection level per "/".
    int match(const char *pattern) const;
    static const char *getChannelTypeName(int behavior);

    // ---- Settings -------------------------------------------------------------
    CH_ChannelBehavior getLeftBehavior() const { return myLeftBehavior; }
    CH_ChannelBehavior getRightBehavior() const { return myRightBehavior; }
    void setLeftBehavior(CH_ChannelBehavior b) { myLeftBehavior = b; }
    void setRightBehavior(CH_ChannelBehavior b) { myRightBehavior = b; }
    float getDefaultValue() const { return myDefaultValue; }
    void setDefaultValue(float v) { myDefaultValue = v; }
    const char *getDefaultString() const { return myDefaultString; }
    void setDefaultString(const char *s) { myDefaultString = s; }
    float getStart() const { return myStart; }
    float getEnd() const { return myStart + myLength; }
    float getLength() const { return myLength; }
    float localTime(float t) const { return t - myStart; }
    float globalTime(float t) const { return t + myStart; }
    bool isTemporary() const { return myTemporary; }
    void setIsTemporary(bool on) { myTemporary = on; }

    // ---- Flags ----------------------------------------------------------------
    bool getChanged() const { return myFlags & theChanged; }
    /// With on, marks every key and disable segment modified and raises the event.
    void setChanged(bool on, CH_CHANGE_TYPE type = CH_CHANNEL_CHANGED);
    bool isCooking() const { return myFlags & theCooking; }
    void setCooking(bool on) { setFlag(theCooking, on); }
    bool isCacheEnabled() const { return myFlags & theCacheEnabled; }
    void setCacheEnable(bool on) { setFlag(theCacheEnabled, on); }
    bool isChangeActive() const { return myFlags & theChangeActive; }
    void setChangeActive(bool on) { setFlag(theChangeActive, on); }
    bool getLocked() const { return myFlags & theLocked; }
    void setLocked(bool on);
    bool isScoped() const { return myScoped; }
    void setScope(bool on);

    // ---- Segments -------------------------------------------------------------
    int getNKeys() const { return myEndSegment ? mySegments.entries() + 1 : 0; }
    int getNSegments() const { return getNKeys(); }
    bool isEmpty() const { return mySegments.isEmpty() && !myEndSegment; }
    bool hasOnlyOneSegment() const { return myEndSegment && mySegments.isEmpty(); }
    /// Index n (the list length) or ~0u gives the end segment; null beyond.
    CH_Segment *getSegment(unsigned index) const
    {
        unsigned n = static_cast<unsigned>(mySegments.entries());
        if (index < n)
            return mySegments(static_cast<int>(index));
        return index == n || index == ~0u ? myEndSegment : nullptr;
    }
    CH_Segment *getFirstSegment() const { return mySegments.isEmpty() ? nullptr : mySegments(0); }
    CH_Segment *getLastSegment() const { return mySegments.isEmpty() ? nullptr : mySegments.last(); }
    CH_Segment *getEndSegment() const { return myEndSegment; }
    /// The segment a local time falls in (the end segment from the last key on).
    CH_Segment *getSegment(float local_time) const;
    int getSegmentIdx(float local_time) const;
    CH_Segment *getExpressionSegment(float local_time) const { return getSegment(local_time); }
    /// The segment starting at a key at that time (the end segment for the
    /// last key), or null when no key lies there.
    CH_Segment *getSegmentAfterKey(float local_time) const;
    /// True when a key lies at the time (within tolerance): left ends there and
    /// right starts there (either may be null). Otherwise both are the segment
    /// the time falls in.
    bool getSurroundingSegs(float local_time, CH_Segment *&left, CH_Segment *&right) const;
    CH_Segment *getNextSegment(unsigned index) const;
    CH_Segment *getPrevSegment(unsigned index) const;
    CH_Segment *getNextSegment(const CH_Segment *s) const;
    CH_Segment *getPrevSegment(const CH_Segment *s) const;
    int getSegmentIndex(const CH_Segment *s) const;

    // ---- Keys by global time and frame -------------------------------------------
    // A key's frame is the manager's getFrame of its global time. Each query
    // is a binary search over the key times (O(log n), getKeyFrames O(k + log n)).
    /// A key lies within the tolerance of the time (a pending value is no key).
    bool isAtHardKey(float global_time) const;
    /// Some key's frame is frame.
    bool isAtHardKeyframe(int frame) const;
    /// The frame of the nearest key whose frame lies beyond frame in the
    /// direction (later for > 0, earlier for < 0); frame itself when there is
    /// none or the direction is 0.
    int findKeyframe(int frame, int direction) const;
    /// Replaces frames by the frames of the keys whose global times lie in
    /// [start, end), ascending, each once.
    void getKeyFrames(UT_IntArray &frames, float start, float end) const;

    // ---- Key editing ------------------------------------------------------------
    // Times are global. Every edit first asks the collection canAccess(0x92);
    // refused, it changes nothing and raises nothing.
    /// At a key (within tolerance) with at_key_only: sets the key's value
    /// (the segment starting there; the end segment at the last key).
    /// Elsewhere, with set_pending: keeps the value as the pending value at
    /// the time. Returns 0, or -1 when refused or nothing was set.
    int setKeyValue(float value, float time, bool set_pending = true, bool at_key_only = true,
                    bool notify = true);
    /// True and the key when one lies at the time; otherwise false and the
    /// curve sampled there (value, slope and accels, tied halves).
    bool getKey(float time, CH_Key &key, bool accel_ratios = true);
    /// Writes the key at the time, making one there first when needed; a
    /// pending value at the time becomes its value, unset slopes and accels
    /// are filled (automatic slope or the default slope, ratio 1/3).
    void putKey(float time, const CH_Key &key, bool accel_ratios = true);
    /// getKey plus the expression of the segment starting at the key (with
    /// reverse, of the one ending there).
    bool getFullKey(float time, CH_FullKey &key, bool reverse = false, bool accel_ratios = true);
    /// putKey, then the key's expression (when it has one) on the segment
    /// starting at the key.
    void putFullKey(float time, const CH_FullKey &key, bool accel_ratios = true);
    /// Makes a key at the time that keeps the curve's value and slope there.
    void insertKeyFrame(float time);
    /// Moves the channel's start; a pending value keeps its global time.
    void scroll(float new_start, bool notify = true);
    /// Removes the key at the time, merging the segments around it.
    void destroyKeyFrame(float time);
    /// The curve at a time away from a key, as a key (no segment: the
    /// default value, slope 0).
    void sampleKey(float time, CH_Key &key, bool accel_ratios = true);
    /// A pending value at the time (within tolerance, or held) becomes the
    /// key's value and stops being pending.
    void applyPendingToKey(CH_Key &key, float time);
    /// Fills the halves whose slope is not set, and unset accels (ratio 1/3).
    void applyAutoSlopeToKey(CH_Key &key);
    /// Replaces the end segment by one of the expression at the manager's
    /// global start, holding the default value: an empty channel becomes a
    /// one-key channel there.
    void initializeFirstSegment(const char *expression, CH_ExprLanguage language);

    // ---- Moving and stretching keys ------------------------------------------------
    // Times are global; the same access rule as the key edits.
    /// Moves the key at old_time to new_time by changing segment lengths (or
    /// the start); reaching or passing a neighbouring key instead copies the
    /// key there (replacing that one) and removes it from old_time. Nothing
    /// when the move is within the tolerance or no key lies at old_time.
    void moveKeyFrame(float old_time, float new_time);
    /// Copies source's key at source_time (values, slopes, accels, ties,
    /// expression and time group) to a key at time here.
    void transferKey(float time, CH_Channel *source, float source_time);
    /// The global time of the nearest key beyond the tolerance from time,
    /// later for direction > 0, earlier for < 0; time itself when the
    /// direction is 0 or there is no key that way. O(log n).
    float findKey(float time, float direction) const;
    /// Starts the channel at new_start and scales its keys to end at new_end.
    void stretch(float new_start, float new_end);

    // ---- Disabled ranges --------------------------------------------------------
    int getNDisableSegments() const { return myDisableSegments.entries(); }
    CH_Segment *getDisableSegment(unsigned index) const;
    CH_Segment *getFirstDisableSegment() const;
    CH_Segment *getLastDisableSegment() const;
    CH_Segment *getNextDisableSegment(const CH_Segment *s) const;
    CH_Segment *getPrevDisableSegment(const CH_Segment *s) const;
    int getDisableSegmentIndex(float local_time, bool take_previous) const;
    CH_Segment *getDisableSegment(float local_time) const;
    bool isDisabled(float local_time) const { return getDisableSegment(local_time) != nullptr; }
    bool isAllEnabled() const { return myDisableSegments.isEmpty(); }
    bool isAllDisabled() const;
    /// Freezes [from, to) (global times) at the value the channel has at from;
    /// overlapping or touching disabled ranges merge.
    void disable(float from, float to);
    /// Re-enables [from, to), cutting disabled ranges that reach into it.
    void enable(float from, float to);

    // ---- Evaluation context (per thread) ------------------------------------------
    void setEvalTime(float local_time, int thread);
    CH_Segment *getEvaluationSegment(int thread) const { return slot(thread).segment; }
    /// The segment and the local time together, from one slot lookup.
    CH_Segment *getEvaluationSegment(int thread, float &local_time) const
    {
        const chEvalSlot &s = slot(thread);
        local_time = s.time;
        return s.segment;
    }
    float getLocalTime(int thread) const { return slot(thread).time; }
    CH_Segment *getPrevEvaluationSegment(int thread) const;
    CH_Segment *getNextEvaluationSegment(int thread) const;
    float getInTime(int thread) const;
    float getOutTime(int thread) const;
    float getPrevInTime(int thread) const;
    float getNextOutTime(int thread) const;

    // ---- Evaluation ------------------------------------------------------------
    // Entry points, also the segment-level ones: see CH_EvalBoundary.
    float evaluate(float global_time, bool ignore_disabled = false, int thread = 0);
    void evaluate(float from, float to, float *out, int count, bool ignore_disabled = false,
                  bool use_cache = false, int thread = 0);
    float evaluateSegment(CH_Segment *s, float local_time, bool extend, int thread);
    void evaluateString(UT_String &result, float global_time, int thread = 0);
    void evaluateStringSegment(UT_String &result, CH_Segment *s, float local_time, bool extend,
                               int thread);
    /// The segment's value at a global time and its slope there: exact for
    /// the plain interpolation functions, otherwise a one-sided difference
    /// over a hundredth of the segment inside it.
    void sampleValueSlope(CH_Segment *s, float global_time, int thread, float &value, float &slope);

    // ---- Pending value -----------------------------------------------------------
    bool isPending() const { return myFlags & thePending; }
    bool isPending(float global_time) const { return isPendingLocal(global_time - myStart); }
    bool isPendingLocal(float local_time) const;
    bool isPendingHold() const { return myFlags & thePendingHold; }
    void setPendingHold(int on);
    float getPendingEvalTime() const { return myPendingTime + myStart; }
    void clearPending();
    void updatePending(float global_time);
    void updatePendingStateToManager();

    // ---- Queries ----------------------------------------------------------------
    void dirtyExprCache();
    void cook(int on);
    bool isTimeDependent() const;
    bool isTimeDependentSlow(int thread);
    bool isStringTimeDependentSlow(int thread);
    bool isDataDependent(float global_time) const;
    bool findString(const char *text, bool whole_word, bool case_sensitive) const;
    int changeString(const char *from, const char *to, bool whole_word, bool notify, int thread);
    bool isEditable() const;
    int canAccess(unsigned mask) const;
    std::int64_t getMemUsage(bool shallow) const;

    // ---- Whole-channel changes ------------------------------------------------------
    /// Deletes every segment: the channel becomes empty.
    void clear();
    void clearSegments() { clear(); }
    /// Copies segments, disabled ranges, start, length, behaviours and defaults.
    void copyContents(const CH_Channel &from);
    void swap(CH_Channel &other);
    void swapContents(CH_Channel &other);
    /// Makes every owned segment point back to this channel.
    void initializeSegmentParents();
    /// Recomputes segment times from the channel start and the lengths, the
    /// length as their sum, the end segment's place and the lookup table.
    /// The flag changes nothing.
    void adjustSegmentTimes(bool cook_end);
    void ensureEndSegmentCreated();
    void updateEndSegment();
    void destroyEndSegment();

private:
    friend class CH_Segment;
    friend class chTestChannelBuilder; // tests and benchmarks build channels by hand

    enum : std::uint8_t
    {
        theChanged = 0x01,
        theCooking = 0x02,
        theCacheEnabled = 0x04,
        theChangeActive = 0x10,
        thePending = 0x20,
        thePendingHold = 0x40,
        theLocked = 0x80
    };
    void setFlag(std::uint8_t bit, bool on) { myFlags = on ? (myFlags | bit) : (myFlags & ~bit); }
    void setPending(bool on, float local_time);
    /// Creates a key at the global time (nothing at an existing key).
    /// snap_first: an empty channel places its first key by the manager's
    /// key-creation expression.
    void splitSegment(float time, bool accel_ratios, bool snap_first = true);
    /// The split rule: a segment made by a split keeps its source's
    /// expression with auto split on, else takes the default split expression.
    void applySplitExpression(CH_Segment *made, const CH_Segment *source, bool auto_split);
    /// Start = new start, the pending time following; CH_CHANNELS_MOVED when
    /// it moved by more than the tolerance and notify.
    void moveStart(float new_start, bool notify);
    /// The length-changing move of moveKeyFrame.
    void moveKeyInternal(float old_time, float new_time);
    /// Scales every list segment's length (and its slopes) by factor.
    void deNormalize(float factor);
    int findSegmentIdx(float local_time, float tol) const;
    /// Keys, their local times and frames, from the segment index.
    int numKeyTimes() const { return myEndSegment ? myIndex.segments() + 1 : 0; }
    int keyFrame(int key) const;
    /// The key nearest the local time within tol (the later one of two as
    /// near), or -1.
    int keyIndexAt(float local_time, float tol) const;
    /// The same, trying the hinted index first and updating the hint.
    int findSegmentIdx(float local_time, float tol, int *hint) const;
    float evaluateWithHint(float global_time, bool ignore_disabled, int thread, int *hint);

    void appendSegment(CH_Segment *s);
    void insertSegment(CH_Segment *s, unsigned index);
    void removeSegment(CH_Segment *s);
    void removeSegment(unsigned index);
    void deleteSegment(CH_Segment *s);
    void cook(CH_Segment *s, int on);
    void linkSegments();
    void appendDisableSegment(CH_Segment *s);
    void insertDisableSegment(CH_Segment *s, unsigned index);
    void insertDisableSegment(CH_Segment *s);
    void removeDisableSegment(CH_Segment *s);
    void deleteDisableSegment(CH_Segment *s);
    void deleteDisableSegment(unsigned index);

    struct chEvalSlot
    {
        float time = 0.0f;
        CH_Segment *segment = nullptr;
    };
    chEvalSlot &slot(int thread) const { return myEvalSlots.get(thread); }
    float evaluateOutside(float t, bool left, bool ignore_disabled, int thread);
    // evaluateSegment and evaluateStringSegment below the entry points.
    float evaluateSegmentAt(CH_Segment *s, float local_time, bool extend, int thread);
    void evaluateStringSegmentAt(UT_String &result, CH_Segment *s, float local_time, bool extend,
                                 int thread);
    void sampleValueSlopeAt(CH_Segment *s, float global_time, int thread, float &value, float &slope);
    /// The local time a cycling behaviour maps t to (0 for a channel of no length).
    float cycleTime(float t, bool left) const;
    void evaluateStringOutside(UT_String &result, float t, bool left, int thread);
    void evaluateStringAt(UT_String &result, float global_time, int thread);
    template <typename Work> auto withContext(CH_Segment *s, float t, int thread, Work work);

    CH_Collection *myCollection;
    CH_Manager *myManager; ///< the collection's (or the current one)
    UT_String myName;
    UT_String myAlias;
    CH_ChannelBehavior myLeftBehavior = CH_CHANNEL_EXTEND;
    CH_ChannelBehavior myRightBehavior = CH_CHANNEL_EXTEND;
    CH_Segment *myEndSegment = nullptr;
    float myDefaultValue = 0.0f;
    float myStart = 0.0f;
    float myLength = 0.0f;
    UT_String myDefaultString;
    UT_PtrArray<CH_Segment *> mySegments;
    UT_PtrArray<CH_Segment *> myDisableSegments;
    bool myScoped = false;
    bool myTemporary = false;
    std::uint8_t myFlags = 0;
    float myPendingTime;
    mutable UT_ThreadSlots<chEvalSlot> myEvalSlots;
    /// Start of each list segment, then the length, for the segment search.
    /// Kept by adjustSegmentTimes().
    CH_SegmentIndex myIndex;
    CH_Channel *myRotationTriple[3] = {nullptr, nullptr, nullptr};
};

/// Moves each key old_base + k of the channel to new_base + k, for each k of
/// key_times (ascending): the last key first when moving later, the first
/// key first when moving earlier, so that no key lands on one not yet moved.
void CHmoveKeysWithDelta(CH_Channel *channel, const UT_FloatArray &key_times, float old_base,
                         float new_base);

#endif
