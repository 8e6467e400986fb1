#ifndef CH_TEST_CHANNEL_BUILDER_H
#define CH_TEST_CHANNEL_BUILDER_H

// Test and benchmark support: builds a channel from a list of keys until key
// editing exists. Not part of the library's interface.

#include <ch/channel/CH_Channel.h>
#include <ch/channel/CH_Segment.h>

#include <initializer_list>
#include <vector>

/// One key: its global time, value, slope and accel, and the expression of
/// the segment that starts at it.
struct chTestKey
{
    float time;
    float value;
    float slope = 0.0f;
    float accel = 0.0f;
    const char *expr = "linear()";
};

class chTestChannelBuilder
{
public:
    /// Replaces the channel's segments by the keys (in time order). The
    /// channel starts at the first key; the last key's segment is the end
    /// segment.
    static void build(CH_Channel &channel, const std::vector<chTestKey> &keys)
    {
        channel.clear();
        if (keys.empty())
            return;
        channel.myStart = keys.front().time;
        for (std::size_t i = 0; i + 1 < keys.size(); ++i)
        {
            const chTestKey &a = keys[i], &b = keys[i + 1];
            auto *s = new CH_Segment(a.expr, CH_ORVISH, &channel, b.time - a.time);
            // Appended raw and laid out once below: appendSegment lays out
            // the whole channel each time, quadratic for millions of keys.
            channel.mySegments.append(s);
            s->setChannel(&channel);
            set(*s, a, b);
        }
        const chTestKey &last = keys.back();
        auto *end = new CH_Segment(last.expr, CH_ORVISH, &channel, 0.0f);
        end->setChannel(&channel);
        channel.myEndSegment = end;
        channel.adjustSegmentTimes(true);
        set(*end, last, last);
    }

    /// Adds a disable segment over [from, to) local times holding value.
    static CH_Segment *addDisabled(CH_Channel &channel, float from, float to)
    {
        channel.disable(from + channel.getStart(), to + channel.getStart());
        return channel.getDisableSegment(from);
    }

    static void removeSegment(CH_Channel &channel, CH_Segment *s)
    {
        channel.deleteSegment(s);
    }

    static void setPending(CH_Channel &channel, bool on, float local_time)
    {
        channel.setPending(on, local_time);
    }

private:
    static void set(CH_Segment &s, const chTestKey &a, const chTestKey &b)
    {
        s.setInValue(a.value, false);
        s.setOutValue(b.value, false);
        s.setInSlope(a.slope, false);
        s.setOutSlope(b.slope, false);
        s.setInAccel(a.accel, false);
        s.setOutAccel(b.accel, false);
    }
};

#endif
