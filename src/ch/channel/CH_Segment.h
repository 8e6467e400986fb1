#ifndef CH_SEGMENT_H
#define CH_SEGMENT_H

#include <ch/channel/CH_SegmentFlags.h>
#include <ch/channel/CH_ValueTypes.h>
#include <ch/expr/CH_ExprLanguage.h>
#include <ch/expr/CH_Expression.h>

#include <ut/UT_String.h>
#include <ut/UT_Vector3.h>

#include <atomic>
#include <vector>
#include <memory>
#include <optional>

class CH_Channel;
struct CH_InterpolationCall;
struct CH_InterpolationKind;
class CH_Manager;
class CH_SplineRun;
class CH_TimeGroup;

/// One interval of a channel: it starts at a key and lasts `length`
/// seconds, and an expression (usually an animation function such as
/// "bezier()") computes its value from the numbers stored here: in and out
/// values, slopes and accels (accel = length of the key's tangent handle).
/// Segments of a channel form a doubly linked list; the channel owns them.
///
/// Setting a number marks the segment modified (which empties its sample
/// cache) when the number actually changes; with `propagate`, a change
/// crosses a tied key into the neighbour (one key at most).
class alignas(64) CH_Segment
{
public:
    /// A segment whose expression is the value as text ("2.5").
    CH_Segment(float value, CH_Channel *channel, float length);
    /// A null text takes the manager's default (rotation) expression.
    CH_Segment(const char *expr, CH_ExprLanguage language, CH_Channel *channel, float length);
    /// Copies flags, channel, expression, length, values and knots; a copy
    /// is never linked and has no time group or cache.
    CH_Segment(const CH_Segment &from);
    CH_Segment &operator=(const CH_Segment &from);
    ~CH_Segment();

    // ---- Numbers ---------------------------------------------------------------
    float getInValue() const { return myInValue; }
    float getOutValue() const { return myOutValue; }
    float getInSlope() const { return myInSlope; }
    float getOutSlope() const { return myOutSlope; }
    float getInAccel() const { return myInAccel; }
    float getOutAccel() const { return myOutAccel; }
    float getLength() const { return myLength; }
    float getILength() const { return myILength; }
    float getStart() const { return myStart; }
    float getEnd() const { return myEnd; }
    /// (t - start) / length: the local parameter 0..1.
    float relativeTime(float t) const { return (t - myStart) * myILength; }
    /// The zero-length segment that holds a channel's last key.
    bool isEndSegment() const { return myLength == 0.0f; }

    void setInValue(float v, bool propagate = true);
    void setOutValue(float v, bool propagate = true);
    void setInSlope(float s, bool propagate = true, float value_scale = 0.0f);
    void setOutSlope(float s, bool propagate = true, float value_scale = 0.0f);
    void setInAccel(float a, bool propagate = true);
    void setOutAccel(float a, bool propagate = true);
    void setInAccelRatio(float r, bool propagate = true);
    void setOutAccelRatio(float r, bool propagate = true);
    float getInAccelRatio() const { return getAccelRatio(myInSlope, myInAccel, myLength); }
    float getOutAccelRatio() const { return getAccelRatio(myOutSlope, myOutAccel, myLength); }
    static float getAccelRatio(float slope, float accel, float length);
    static float getAccelFromRatio(float slope, float ratio, float length);
    void clampInAccel();
    void clampOutAccel();
    /// Sets both accels to one third of the segment's length along the tangent.
    void normalizeAccels();

    /// By kind: value, slope, or (for accels) the ratio. With hold_last_key
    /// false the write is done as if the manager's hold-last-key setting
    /// were off, without touching the setting (keys are written this way).
    float getValue(bool in, CH_ValueTypes kind) const;
    void setValue(bool in, CH_ValueTypes kind, float v, bool hold_last_key = true);
    bool getValueTied(bool in, CH_ValueTypes kind) const;
    void setValueTied(bool in, CH_ValueTypes kind, bool tied);
    /// Whether the expression reads that number (slopes and accels count
    /// for both sides), from the names its text uses: never evaluates.
    bool getValueValid(bool in, CH_ValueTypes kind) const;

    // ---- Ties and locks ----------------------------------------------------------
    bool isInValueTied() const { return myFlags.has(CH_SegmentFlags::IN_VALUE_TIED); }
    bool isOutValueTied() const { return myFlags.has(CH_SegmentFlags::OUT_VALUE_TIED); }
    bool isInSlopeTied() const { return myFlags.has(CH_SegmentFlags::IN_SLOPE_TIED); }
    bool isOutSlopeTied() const { return myFlags.has(CH_SegmentFlags::OUT_SLOPE_TIED); }
    bool isInAccelTied() const { return myFlags.has(CH_SegmentFlags::IN_ACCEL_TIED); }
    bool isOutAccelTied() const { return myFlags.has(CH_SegmentFlags::OUT_ACCEL_TIED); }
    void tieInValue(bool tie, bool propagate = true);
    void tieOutValue(bool tie, bool propagate = true);
    void tieInSlope(bool tie, bool propagate = true, float value_scale = 0.0f);
    void tieOutSlope(bool tie, bool propagate = true, float value_scale = 0.0f);
    void tieInAccel(bool tie, bool propagate = true);
    void tieOutAccel(bool tie, bool propagate = true);
    bool isEndLocked() const { return myFlags.has(CH_SegmentFlags::END_LOCKED); }
    bool isStartLocked() const { return myFlags.has(CH_SegmentFlags::START_LOCKED); }
    bool isLengthLocked() const { return myFlags.has(CH_SegmentFlags::LENGTH_LOCKED); }
    void lockEnd(int on) { myFlags.set(CH_SegmentFlags::END_LOCKED, on != 0); }
    void lockStart(int on) { myFlags.set(CH_SegmentFlags::START_LOCKED, on != 0); }
    void lockLength(int on) { myFlags.set(CH_SegmentFlags::LENGTH_LOCKED, on != 0); }

    // ---- Expression ------------------------------------------------------------
    CH_Expression *getCHExpr() const
    {
        return myExpression ? const_cast<CH_Expression *>(&*myExpression) : nullptr;
    }
    /// The expression's text; null without an expression.
    const char *getExpression() const;
    CH_ExprLanguage getExprLanguage() const;
    void setExprLanguage(CH_ExprLanguage language);
    const CH_SegmentFlags &getFlags() const { return myFlags; }
    bool isConstant() const { return myFlags.has(CH_SegmentFlags::CONSTANT); }
    bool isBezier() const { return myFlags.has(CH_SegmentFlags::BEZIER); }
    bool isLinear() const { return myFlags.has(CH_SegmentFlags::LINEAR); }
    bool isCubic() const { return myFlags.has(CH_SegmentFlags::CUBIC); }
    bool isSpline() const { return myFlags.has(CH_SegmentFlags::SPLINE); }
    bool isLockedSegment() const { return myFlags.has(CH_SegmentFlags::LOCKED_SEGMENT); }
    bool isQLinear() const { return myFlags.has(CH_SegmentFlags::QLINEAR); }
    bool isQCubic() const { return myFlags.has(CH_SegmentFlags::QCUBIC); }
    bool isQuaternion() const { return myFlags.has(CH_SegmentFlags::QLINEAR | CH_SegmentFlags::QCUBIC); }
    bool isMatchFunction() const;
    /// What the text is when it is exactly an animation function's call
    /// without arguments ("bezier()", "matchin()", ...), decided when the
    /// text is set; null for any other text.
    const CH_InterpolationKind *getInterpolationKind() const { return myKind; }
    bool isDataDependent() const;
    static bool expressionIsAnimationFunctionCall(const char *text);
    bool expressionIsAnimationFunctionCall() const;

    /// Changes the text (and language); refused when the collection denies
    /// access. With `normalize`, accels that come into use are normalised.
    void changeExpression(const char *text, CH_ExprLanguage language, bool normalize = false);

    bool isInValueUsed() const;
    bool isOutValueUsed() const;
    bool isInSlopeUsed() const;
    bool isOutSlopeUsed() const { return isInSlopeUsed(); }
    bool isInAccelUsed() const;
    bool isOutAccelUsed() const { return isInAccelUsed(); }
    bool isSplineUsed() const;
    /// Evaluates a modified expression once so that it records what it uses.
    void updateExprFlags() const;

    void dirtyExprCache();
    bool findString(const char *text, bool whole_word, bool case_sensitive) const;
    int changeString(const char *from, const char *to, bool whole_word, int thread);
    void unresolveLocalVars(int thread);
    void evaluateString(UT_String &result, int thread) const;

    // ---- Spline knots ------------------------------------------------------------
    const UT_Vector3 *getSplineKnots() const { return myKnots.get(); }
    const UT_Vector3 &getSplineKnot(int i) const { return myKnots[i]; }
    int getNKnots() const { return myNKnots; }
    void setSplineKnots(const UT_Vector3 *knots, int n);

    // ---- Spline run cache ----------------------------------------------------------
    /// The shared spline of the run of "spline()" segments this one belongs
    /// to, once an evaluation has built it; null otherwise. Whatever could
    /// change the run's curve drops it: setModified (which reaches the spline
    /// neighbours), new times, new links.
    const CH_SplineRun *getSplineRun() const { return mySplineRun.load(std::memory_order_acquire); }
    /// The index of this segment's start among the run's knots, as offered
    /// with the run (a hint: -1 when unknown).
    int getSplineKnot() const { return mySplineKnot.load(std::memory_order_relaxed); }
    /// Keeps a reference to `run`, with the segment's knot index, unless the
    /// segment holds one already (evaluations on other threads may have built
    /// the same run first; theirs has the same knots).
    void offerSplineRun(const CH_SplineRun *run, int knot) const;
    /// Forgets the run (editing thread only, like every edit).
    void dropSplineRun();

    // ---- Links -------------------------------------------------------------------
    CH_Channel *getChannel() const { return myChannel; }
    /// A segment in a time group moves its entry to the new channel (and
    /// leaves the group when the channel is null).
    void setChannel(CH_Channel *channel);
    CH_Segment *getPrev() const { return myPrev; }
    CH_Segment *getNext() const { return myNext; }
    void setPrevNext(CH_Segment *prev, CH_Segment *next)
    {
        // Other neighbours may make another run; the channel relinks every
        // segment after any change of its list.
        dropSplineRun();
        myPrev = prev;
        myNext = next;
    }
    CH_TimeGroup *getTimeGroup() const { return myTimeGroup; }
    /// Takes over other's time group: this segment leaves its own, joins
    /// other's, and other leaves it. Nothing when other is this segment or
    /// has no group, or when this segment has no channel to join under.
    void transferGroup(CH_Segment &other);
    CH_Manager *getManager() const;
    float getTolerance() const;

    // ---- Time ---------------------------------------------------------------------
    /// Lengths below 1e-5 (negative ones too) become 1e-5; 0 stays 0.
    void changeLength(float length, CH_SegmentScale scale = CH_SCALE_ANY, bool keep_ratios = true);
    void changeTimes(float start, float end);
    void stretch(float scale, int sides, int);
    /// Swaps the in and out sides (numbers and ties) and the knot order.
    void reverse();

    // ---- State ---------------------------------------------------------------------
    bool wasModified() const { return myFlags.has(CH_SegmentFlags::MODIFIED); }
    void setModified(int on);
    bool isCooking() const { return myFlags.has(CH_SegmentFlags::COOKING); }

    bool isTimeDependent() const;
    bool isTimeDependent(bool refresh, int thread) const;
    bool isTimeDependentAndGetFloat(float &value, int thread) const;
    bool isTimeDependentAndGetString(UT_String &value, int thread) const;

    // ---- Evaluation ------------------------------------------------------------
    /// The channel has set its evaluation time and segment for the thread.
    float evaluate(float t, bool extend, int thread);
    /// The expression's value, without the sample cache.
    float evaluateExpression(int thread);
    void cook(int modified, int samples);
    int getCacheSize() const { return static_cast<int>(myCache.size()); }

    /// "time %f %f\tvalue %f %f\tslope %f %f\tsl %f %f\n".
    void display() const;

private:
    friend class CH_Channel;
    friend class CH_TimeGroup; // links and unlinks its entries

    struct chSide;
    chSide side(bool in);
    void setSideValue(bool in, float v, bool propagate, bool hold = true);
    void setSideSlope(bool in, float s, bool propagate, float k, bool hold = true);
    void setSideAccel(bool in, float a, bool propagate);
    void tieSide(bool in, CH_ValueTypes kind, bool tie, bool propagate, float k);
    void initDefaults();
    void checkExpression();
    /// checkExpression after the text or language changed; was_spline is
    /// what the segment was before.
    void reclassify(bool was_spline);
    void setExpressionText(const char *text, CH_ExprLanguage language);
    void holdLastKey(float value, bool propagate);
    void afterValueSet(float value, bool propagate, bool hold);
    bool usesFlag(unsigned mask) const;
    /// With remove the segment also leaves its old group's entries and joins
    /// the new group's (a segment without a channel joins none); without it
    /// only the pointer is stored (the group calls so for its own entries).
    void setTimeGroup(CH_TimeGroup *group, bool remove);
    void isCooking(int on) { myFlags.set(CH_SegmentFlags::COOKING, on != 0); }

    float evaluateFromCache(float t, int thread);
    void updateCacheToIncludeSample(int sample, int thread);
    void fillCache(int first, int last, int thread);
    void clearCache();
    void recook(float *out, int count, int thread);

    // What evaluation reads fills the first cache line (the class is aligned
    // to one): the times and key numbers the animation functions read, the
    // direct call, and the expression's language and program (its first
    // members). A segment always holds an expression, so evaluation never
    // reads the optional's flag, which lies beyond. The sample cache and
    // knots, rarely used, come last.
    float myStart = 0.0f;
    float myEnd = 0.0f;
    float myInValue = 0.0f;
    float myOutValue = 0.0f;
    float myInSlope = 0.0f;
    float myOutSlope = 0.0f;
    float myInAccel = 0.0f;
    float myOutAccel = 0.0f;
    /// Set when the text is exactly an argument-free interpolation call.
    const CH_InterpolationCall *myInterpolation = nullptr;
    /// Held inline: evaluation reaches it without another pointer. Set by
    /// every constructor and assignment.
    std::optional<CH_Expression> myExpression;
    CH_SegmentFlags myFlags;
    CH_Channel *myChannel = nullptr;
    float myLength = 0.0f;
    float myILength = 1e8f;
    CH_Segment *myPrev = nullptr;
    CH_Segment *myNext = nullptr;
    CH_TimeGroup *myTimeGroup = nullptr;
    const CH_InterpolationKind *myKind = nullptr; ///< read by classification and slope sampling
    std::unique_ptr<UT_Vector3[]> myKnots;
    int myNKnots = 0;
    int myFirstCachedSample = 0;
    std::vector<float> myCache; ///< small: grows one segment's samples at either end
    /// Written by evaluations (once, from null), cleared by edits.
    mutable std::atomic<const CH_SplineRun *> mySplineRun{nullptr};
    mutable std::atomic<int> mySplineKnot{-1};
};

#endif
