#include <ch/manager/CH_TimeGroup.h>

#include <ch/channel/CH_Segment.h>
#include <ch/manager/CH_Manager.h>

CH_TimeGroup::~CH_TimeGroup()
{
    clearAndDestroy();
}

int CH_TimeGroup::getIndex() const
{
    CH_Manager *mgr = CH_Manager::getContext();
    return mgr ? mgr->getTimeGroupIdx(myName) : -1;
}

int CH_TimeGroup::channelIndex(const CH_Channel *channel) const
{
    return myChannels.sortedFind(const_cast<CH_Channel *>(channel));
}

bool CH_TimeGroup::addEntry(CH_Segment *segment, bool link)
{
    // Entries are kept by channel: a segment without one has nowhere to go.
    if (!segment || !segment->getChannel())
        return false;
    int listed = myChannels.entries();
    int c = myChannels.uniqueSortedInsert(segment->getChannel());
    if (myChannels.entries() != listed)
        myEntries.insert(myEntries.begin() + c, UT_PtrArray<CH_Segment *>());
    UT_PtrArray<CH_Segment *> &segments = myEntries[static_cast<std::size_t>(c)];
    segments.uniqueSortedInsert(segment);
    // The segment leaves its old group and finds itself listed here already,
    // so the two calls end there.
    if (link && segment->getTimeGroup() != this)
        segment->setTimeGroup(this, true);
    return true;
}

void CH_TimeGroup::removeEntry(CH_Segment *segment, bool unlink)
{
    if (!segment)
        return;
    int c = channelIndex(segment->getChannel());
    if (c < 0)
        return;
    UT_PtrArray<CH_Segment *> &segments = myEntries[static_cast<std::size_t>(c)];
    int s = segments.sortedFind(segment);
    if (s < 0)
        return;
    segments.removeIndex(s);
    if (segments.isEmpty())
    {
        myChannels.removeIndex(c);
        myEntries.erase(myEntries.begin() + c);
    }
    // Only a segment that names this group is unlinked: a stale entry must
    // not take a segment out of the group it now belongs to.
    if (unlink && segment->getTimeGroup() == this)
        segment->setTimeGroup(nullptr, false);
}

bool CH_TimeGroup::findEntry(const CH_Segment *segment) const
{
    return segment && segment->getTimeGroup() == this;
}

CH_Segment *CH_TimeGroup::getEntry(CH_Channel *channel, int i) const
{
    int c = channelIndex(channel);
    if (c < 0)
        return nullptr;
    const UT_PtrArray<CH_Segment *> &segments = myEntries[static_cast<std::size_t>(c)];
    return i >= 0 && i < segments.entries() ? segments(i) : nullptr;
}

int CH_TimeGroup::numEntries(CH_Channel *channel) const
{
    int c = channelIndex(channel);
    return c < 0 ? 0 : myEntries[static_cast<std::size_t>(c)].entries();
}

int CH_TimeGroup::numEntries() const
{
    int n = 0;
    for (const auto &segments : myEntries)
        n += segments.entries();
    return n;
}

void CH_TimeGroup::clearAndDestroy()
{
    while (!myEntries.empty())
    {
        UT_PtrArray<CH_Segment *> &segments = myEntries.back();
        while (!segments.isEmpty())
        {
            CH_Segment *segment = segments.last();
            segments.removeIndex(segments.entries() - 1);
            if (segment->getTimeGroup() == this)
                segment->setTimeGroup(nullptr, false);
        }
        myEntries.pop_back();
        myChannels.removeIndex(myChannels.entries() - 1);
    }
}
