#ifndef CH_TIMEGROUP_H
#define CH_TIMEGROUP_H

#include <ut/UT_String.h>

/// A named block of segments, across channels, that the user moves in time
/// as one. The group records where it sits in time. Its entries (segments
/// by channel) and shifting come with key editing; for now a time group is
/// its name, time, accepted delta and selection.
class CH_TimeGroup
{
public:
    CH_TimeGroup(const char *name, float time) : myName(name), myTime(time) {}
    ~CH_TimeGroup() = default;
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

private:
    friend class CH_Manager; // renames through the unique-name rule

    UT_String myName;
    float myTime;
    float myAcceptedDt = 0.0f;
    bool mySelected = false;
};

#endif
