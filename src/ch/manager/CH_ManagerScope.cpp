// Scope, display, selection and pinning of channels, and the pending
// channels. The scope table names channels by reference, so it holds
// channels that are not loaded; a channel is scoped exactly when it has an
// entry.
#include "CH_Manager.h"

#include <ch/channel/CH_Channel.h>
#include <ch/io/CH_Collection.h>
#include <ch/manager/CH_Group.h>

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

const char *const chScopeFlagNames[5] = {"Scoped", "Selected", "Pinned", "Displayed", "Templated"};

void CHdisplayFlags(unsigned flags, std::ostream &os)
{
    for (int bit : {0, 2, 3, 4})
        os << ((flags & (1u << bit)) ? chScopeFlagNames[bit][0] : ' ');
}

// ---- Signalling ------------------------------------------------------------------

void CH_Manager::sendScopeEvents(unsigned bits)
{
    if (CH_Collection *root = myRootCollection)
    {
        // A selection change goes out as value 18 and a pin change as 17:
        // hosts listen for these numbers, so the crossing stays.
        if (bits & CH_FLAG_SCOPED)
            root->setChanged(CH_SCOPE_CHANGED, nullptr);
        if (bits & CH_FLAG_SELECTED)
            root->setChanged(CH_SCOPE_PIN_CHANGED, nullptr);
        if (bits & CH_FLAG_PINNED)
            root->setChanged(CH_SCOPE_SELECTION_CHANGED, nullptr);
        if (bits & (CH_FLAG_DISPLAYED | CH_FLAG_TEMPLATED))
            root->setChanged(CH_SCOPE_DISPLAY_CHANGED, nullptr);
    }
    if (myTopGroup)
        myTopGroup->dirtySubtreeScopeFlags(bits);
}

void CH_Manager::signalScope(unsigned bits, bool send)
{
    if (!send)
        return;
    if (myScopeBlockDepth > 0)
        myPendingScopeChanges |= bits;
    else
        sendScopeEvents(bits);
}

void CH_Manager::scopeChanged(unsigned bits, bool send)
{
    if (bits & CH_FLAG_SCOPED)
        mySortedScopedValid = false;
    signalScope(bits, send);
}

void CH_Manager::blockModifyScope(int block)
{
    myScopeBlockDepth = block ? myScopeBlockDepth + 1 : std::max(myScopeBlockDepth - 1, 0);
    if (myScopeBlockDepth != 0 || !myPendingScopeChanges)
        return;
    unsigned bits = myPendingScopeChanges;
    myPendingScopeChanges = 0;
    if (bits & CH_FLAG_SCOPED)
        mySortedScopedValid = false;
    sendScopeEvents(bits);
}

// ---- Queries ---------------------------------------------------------------------

bool CH_Manager::isChannelScoped(CH_Channel *channel) const
{
    CH_ChannelRef ref;
    if (!channel || !buildChanRef(ref, channel))
        return false;
    return isChannelScoped(ref);
}

bool CH_Manager::isChannelScoped(const CH_ChannelRef &ref) const
{
    return myScopeTable.contains(ref);
}

bool CH_Manager::isChannelScoped(const char *path) const
{
    CH_ChannelRef ref;
    return buildChanRef(ref, path) && isChannelScoped(ref);
}

unsigned CH_Manager::getChannelFlags(const CH_ChannelRef &ref) const
{
    const unsigned *flags = myScopeTable.find(ref);
    return flags ? *flags : 0u;
}

bool CH_Manager::isChannelDisplayed(const CH_ChannelRef &ref) const
{
    return getChannelFlags(ref) & CH_FLAG_DISPLAYED;
}

bool CH_Manager::isChannelDisplayed(const char *path) const
{
    CH_ChannelRef ref;
    return buildChanRef(ref, path) && isChannelDisplayed(ref);
}

bool CH_Manager::isChannelSelected(const CH_ChannelRef &ref) const
{
    return getChannelFlags(ref) & CH_FLAG_SELECTED;
}

bool CH_Manager::isChannelSelected(const char *path) const
{
    CH_ChannelRef ref;
    return buildChanRef(ref, path) && isChannelSelected(ref);
}

void CH_Manager::collectExposed(UT_RefArray<CH_ChannelRef> &refs, unsigned mask) const
{
    for (const auto &entry : myScopeTable)
        if ((entry.second & mask) == mask && isOwnerExposed(entry.first.getRef()))
            refs.append(entry.first.getRef());
}

void CH_Manager::getScopedChanRefs(UT_RefArray<CH_ChannelRef> &refs, unsigned mask,
                                   bool sorted) const
{
    refs.clear();
    collectExposed(refs, mask);
    if (sorted)
        refs.stableSort([this](const CH_ChannelRef &a, const CH_ChannelRef &b) {
            return compareChanRefs(a, b) < 0;
        });
}

void CH_Manager::getSelectedScopedChanRefs(UT_RefArray<CH_ChannelRef> &refs, bool sorted, int mask)
{
    getScopedChanRefs(refs, static_cast<unsigned>(mask), sorted);
}

void CH_Manager::getScopedChannels(UT_PtrArray<CH_Channel *> &channels, bool sorted)
{
    // Live channels of exposed collections only.
    auto gather = [this](UT_PtrArray<CH_Channel *> &out) {
        out.clear();
        for (const auto &entry : myScopeTable)
        {
            CH_Channel *channel = getChRefChannel(entry.first.getRef());
            if (channel && channel->getCollection() && channel->getCollection()->getExpose())
                out.append(channel);
        }
    };
    if (!sorted)
    {
        gather(channels);
        return;
    }
    if (!mySortedScopedValid)
    {
        gather(mySortedScoped);
        // By full path, component by component ("/a/b" before "/a/b/c").
        std::vector<std::pair<std::string, CH_Channel *>> keyed;
        for (CH_Channel *channel : mySortedScoped)
        {
            UT_String path;
            channel->getFullPath(path);
            keyed.emplace_back(path.toStdString(), channel);
        }
        std::stable_sort(keyed.begin(), keyed.end(), [](const auto &a, const auto &b) {
            return std::lexicographical_compare(
                a.first.begin(), a.first.end(), b.first.begin(), b.first.end(),
                [](char x, char y) {
                    // "/" sorts before every other character.
                    unsigned char ux = x == '/' ? 0 : static_cast<unsigned char>(x);
                    unsigned char uy = y == '/' ? 0 : static_cast<unsigned char>(y);
                    return ux < uy;
                });
        });
        for (int i = 0; i < mySortedScoped.entries(); ++i)
            mySortedScoped(i) = keyed[static_cast<std::size_t>(i)].second;
        mySortedScopedValid = true;
    }
    channels = mySortedScoped;
}

void CH_Manager::getScopedChannelsKeyFrames(UT_IntArray &frames, int start, int end)
{
    frames.clear();
    UT_PtrArray<CH_Channel *> channels;
    getScopedChannels(channels, false);
    // Frame f lies at time (f - 1) / fps: frames start .. end.
    float from = static_cast<float>(start - 1) / myFPS;
    float to = static_cast<float>(end) / myFPS;
    UT_IntArray keys;
    for (CH_Channel *channel : channels)
    {
        channel->getKeyFrames(keys, from, to);
        frames.merge(keys, true, false);
    }
}

// ---- Changing scope --------------------------------------------------------------

bool CH_Manager::scopeChannelInternal(const CH_ChannelRef &ref, bool on)
{
    unsigned *flags = myScopeTable.find(ref);
    if (flags && (*flags & CH_FLAG_PINNED))
        return true; // pinned channels stay as they are
    if (on)
        myScopeTable.set(ref, flags ? (*flags | CH_FLAG_SCOPED | CH_FLAG_DISPLAYED)
                                    : (CH_FLAG_SCOPED | CH_FLAG_DISPLAYED));
    else
        myScopeTable.remove(ref);
    if (isOwnerExposed(ref))
        scopeChanged(CH_FLAG_SCOPED, true);
    return on;
}

bool CH_Manager::scopeChannelInternal(CH_Channel *channel, bool on)
{
    CH_ChannelRef ref;
    if (!buildChanRef(ref, channel))
        return false;
    return scopeChannelInternal(ref, on);
}

void CH_Manager::scopeChannel(const CH_ChannelRef &ref, bool on)
{
    scopeChannelInternal(ref, on);
}

void CH_Manager::scopeChannel(const char *path, bool on)
{
    CH_ChannelRef ref;
    if (buildChanRef(ref, path))
        scopeChannel(ref, on);
}

void CH_Manager::setChannelFlags(const CH_ChannelRef &ref, unsigned mask, bool on, bool send)
{
    unsigned *entry = myScopeTable.find(ref);
    unsigned old = entry ? *entry : 0u;
    unsigned changed;
    if (on)
    {
        mask |= CH_FLAG_SCOPED; // setting any flag scopes the channel
        changed = entry ? (mask & ~old) : mask;
        myScopeTable.set(ref, old | mask);
    }
    else
    {
        if ((mask & CH_FLAG_SCOPED) || !entry)
            return; // scope is never removed through flags
        changed = mask & old;
        *entry = old & ~mask;
    }
    if (isOwnerExposed(ref))
        scopeChanged(changed, send);
}

void CH_Manager::displayChannel(const CH_ChannelRef &ref, bool send)
{
    setChannelFlags(ref, CH_FLAG_DISPLAYED, true, send);
}

void CH_Manager::undisplayChannel(const CH_ChannelRef &ref, bool send)
{
    setChannelFlags(ref, CH_FLAG_DISPLAYED, false, send);
}

void CH_Manager::selectChannel(const CH_ChannelRef &ref, bool send)
{
    setChannelFlags(ref, CH_FLAG_SELECTED, true, send);
}

void CH_Manager::deselectChannel(const CH_ChannelRef &ref, bool send)
{
    setChannelFlags(ref, CH_FLAG_SELECTED, false, send);
}

void CH_Manager::displayChannel(const char *path, bool send)
{
    CH_ChannelRef ref;
    if (buildChanRef(ref, path))
        displayChannel(ref, send);
}

void CH_Manager::undisplayChannel(const char *path, bool send)
{
    CH_ChannelRef ref;
    if (buildChanRef(ref, path))
        undisplayChannel(ref, send);
}

void CH_Manager::selectChannel(const char *path, bool send)
{
    CH_ChannelRef ref;
    if (buildChanRef(ref, path))
        selectChannel(ref, send);
}

void CH_Manager::deselectChannel(const char *path, bool send)
{
    CH_ChannelRef ref;
    if (buildChanRef(ref, path))
        deselectChannel(ref, send);
}

void CH_Manager::orIntoAll(unsigned bit, bool send)
{
    // Every entry, exposed or not.
    for (auto &entry : myScopeTable)
        entry.second |= bit;
    signalScope(bit, send);
}

void CH_Manager::displayAllScopedChannels(bool send)
{
    orIntoAll(CH_FLAG_DISPLAYED, send);
}

void CH_Manager::selectAllScopedChannels(bool send)
{
    orIntoAll(CH_FLAG_SELECTED, send);
}

void CH_Manager::pinAllScopedChannels(bool send)
{
    orIntoAll(CH_FLAG_PINNED, send);
}

void CH_Manager::clearExposedBit(unsigned bit, bool send)
{
    UT_RefArray<CH_ChannelRef> refs;
    collectExposed(refs, bit);
    for (const CH_ChannelRef &ref : refs)
        *myScopeTable.find(ref) &= ~bit;
    signalScope(bit, send);
}

void CH_Manager::clearDisplayedChannels(bool send)
{
    clearExposedBit(CH_FLAG_DISPLAYED, send);
}

void CH_Manager::clearSelectedChannels(bool send)
{
    clearExposedBit(CH_FLAG_SELECTED, send);
}

void CH_Manager::displaySelectedScopedChannels(bool send)
{
    UT_RefArray<CH_ChannelRef> refs;
    collectExposed(refs, CH_FLAG_SELECTED);
    for (const CH_ChannelRef &ref : refs)
        setChannelFlags(ref, CH_FLAG_DISPLAYED, true, send);
    signalScope(CH_FLAG_DISPLAYED, send);
}

void CH_Manager::pinChannels(UT_RefArray<CH_ChannelRef> refs, bool send)
{
    for (const CH_ChannelRef &ref : refs)
    {
        unsigned *entry = myScopeTable.find(ref);
        bool was_scoped = entry != nullptr;
        myScopeTable.set(ref, (entry ? *entry : 0u) | CH_FLAG_SCOPED | CH_FLAG_PINNED);
        // A newly scoped channel is announced only as a pin change.
        if (!was_scoped && isOwnerExposed(ref))
            mySortedScopedValid = false;
    }
    if (refs.entries())
        signalScope(CH_FLAG_PINNED, send);
}

void CH_Manager::unpinChannels(UT_RefArray<CH_ChannelRef> refs, bool send)
{
    for (const CH_ChannelRef &ref : refs)
        if (unsigned *entry = myScopeTable.find(ref))
            *entry &= ~CH_FLAG_PINNED;
    if (refs.entries())
        signalScope(CH_FLAG_PINNED, send);
}

void CH_Manager::unpinAllScopedChannels(bool send)
{
    UT_RefArray<CH_ChannelRef> refs;
    collectExposed(refs, CH_FLAG_PINNED);
    for (const CH_ChannelRef &ref : refs)
        *myScopeTable.find(ref) &= ~CH_FLAG_PINNED;
    if (refs.entries())
        signalScope(CH_FLAG_PINNED, send);
}

void CH_Manager::togglePinAllScopedChannels()
{
    for (const auto &entry : myScopeTable)
        if (!(entry.second & CH_FLAG_PINNED) && isOwnerExposed(entry.first.getRef()))
        {
            orIntoAll(CH_FLAG_PINNED, true);
            return;
        }
    unpinAllScopedChannels(true);
}

void CH_Manager::togglePinScopedChannels(UT_RefArray<CH_ChannelRef> refs)
{
    for (const CH_ChannelRef &ref : refs)
        if (!(getChannelFlags(ref) & CH_FLAG_PINNED))
        {
            pinChannels(refs, true);
            return;
        }
    unpinChannels(refs, true);
}

void CH_Manager::pinSelectedChannels(bool send, int mask)
{
    UT_RefArray<CH_ChannelRef> refs;
    getScopedChanRefs(refs, static_cast<unsigned>(mask), false);
    pinChannels(refs, send);
}

void CH_Manager::unpinSelectedChannels(bool send, int mask)
{
    UT_RefArray<CH_ChannelRef> refs;
    getScopedChanRefs(refs, static_cast<unsigned>(mask), false);
    unpinChannels(refs, send);
}

void CH_Manager::clearChannelScope()
{
    clearSelectedChannels(false);
    UT_RefArray<CH_ChannelRef> refs;
    collectExposed(refs, 0);
    for (int i = refs.entries() - 1; i >= 0; --i)
        scopeChannel(refs(i), false);
}

void CH_Manager::unscopeChannelsWithNodeId(int node_id, bool force)
{
    auto unpinned = [](const CH_ChannelRef &, unsigned flags) { return !(flags & CH_FLAG_PINNED); };
    int n = myScopeTable.deleteSymbolsWithNodeId(node_id, force ? nullptr : +unpinned, nullptr,
                                                 nullptr);
    if (n)
        scopeChanged(CH_FLAG_SCOPED, true);
}

// ---- Pending channels ------------------------------------------------------------

void CH_Manager::addPendingChannel(CH_Channel *channel)
{
    if (channel)
        myPendingChannels.insert(channel);
}

void CH_Manager::removePendingChannel(CH_Channel *channel)
{
    myPendingChannels.erase(channel);
}

void CH_Manager::getPendingChannels(UT_PtrArray<CH_Channel *> &channels) const
{
    channels.clear();
    for (CH_Channel *channel : myPendingChannels)
        channels.append(channel);
}

void CH_Manager::clearPendingChannels()
{
    // Each channel leaves the table as it clears its pending state.
    std::vector<CH_Channel *> snapshot(myPendingChannels.begin(), myPendingChannels.end());
    for (auto it = snapshot.rbegin(); it != snapshot.rend(); ++it)
        (*it)->clearPending();
    myPendingChannels.clear(); // held channels stay pending but are not listed
}
