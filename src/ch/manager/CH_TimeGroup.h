#ifndef CH_TIMEGROUP_H
#define CH_TIMEGROUP_H

#include <ut/UT_PtrArray.h>
#include <ut/UT_String.h>

#include <vector>

class CH_Channel;
class CH_Segment;

/// A named block of segments, across channels, that the user moves in time
/// as one. The group records where it sits in time. Its entries are kept by
/// channel: the channels sorted by pointer, and for each one (same index) its
/// segments in the group, sorted by pointer. A channel is listed exactly
/// while it has a segment in the group.
///
/// A segment and its group keep each other in step: a segment names its
/// group (CH_Segment::getTimeGroup) exactly while the group lists it, and a
/// segment leaves its group when it is destroyed. A segment joins under its
/// channel, so one without a channel cannot join.
class CH_TimeGroup
{
public:
    CH_TimeGroup(const char *name, float time) : myName(name), myTime(time) {}
    /// Unlinks every segment (clearAndDestroy).
    ~CH_TimeGroup();
    CH_TimeGroup(const CH_TimeGroup &) = delete;
    CH_TimeGroup &operator=(const CH_TimeGroup &) = delete;

    const char *getName() const { return myName; }
    float getTime() const { return myTime; }
    void setTime(float t) { myTime = t; }
    float getAcceptedDt() const { return myAcceptedDt; }
    void setAcceptedDt(float dt) { myAcceptedDt = dt; }
    bool isSelected() const { return mySelected; }
    void setSelect(bool on) { mySelected = on; }
    /// Its index in the current manager's list, -1 when not listed.
    int getIndex() const;

    // ---- Entries -----------------------------------------------------------
    /// Adds the segment under its channel (once). With link the segment also
    /// leaves its previous group and names this one. Refused (false, nothing
    /// changes) for a null segment or one without a channel; true when the
    /// segment is listed afterwards. Without link the caller sets the
    /// segment's group itself.
    bool addEntry(CH_Segment *segment, bool link);
    /// Takes the segment out (a channel left without segments goes too);
    /// with unlink the segment then names no group. Nothing for a segment
    /// that is not listed.
    void removeEntry(CH_Segment *segment, bool unlink);
    /// The segment names this group.
    bool findEntry(const CH_Segment *segment) const;
    /// The channel's i-th segment in the group (by pointer order); null when
    /// the channel is not in the group or i is out of range.
    CH_Segment *getEntry(CH_Channel *channel, int i) const;
    int numEntries(CH_Channel *channel) const;
    int numEntries() const;
    const UT_PtrArray<CH_Channel *> &getChannels() const { return myChannels; }
    /// Removes every entry, last channel and last segment first, leaving each
    /// segment without a group.
    void clearAndDestroy();

private:
    friend class CH_Manager; // renames through the unique-name rule

    int channelIndex(const CH_Channel *channel) const;

    UT_String myName;
    float myTime;
    float myAcceptedDt = 0.0f;
    bool mySelected = false;
    UT_PtrArray<CH_Channel *> myChannels;
    /// Parallel to myChannels: each channel's segments, never empty.
    std::vector<UT_PtrArray<CH_Segment *>> myEntries;
};

#endif
