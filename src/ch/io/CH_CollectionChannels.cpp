// The channels of a collection: names and aliases, adding, duplicating,
// deleting and renaming, lookups by name, path and pattern, and the queries
// over all channels.
#include "CH_Collection.h"

#include <ch/channel/CH_Channel.h>
#include <ch/channel/CH_Segment.h>
#include <ch/channel/CH_SegmentFlags.h>
#include <ch/manager/CH_EventManager.h>
#include <ch/manager/CH_Manager.h>

#include <ut/UT_EnvControl.h>

#include <cstring>
#include <string>

namespace {

// Edits of names and aliases ask this of the host (see canAccessChannel).
constexpr unsigned theEditAccess = 0x92;

bool chIsNameCharacter(unsigned char c)
{
    // The C locale's letters and digits, whatever locale the host set.
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' ||
           c == '_' || c == ':';
}

// Splits "a/b/name" at its last "/": the collection part and the name.
bool chSplitPath(const char *path, std::string &collection, const char *&name)
{
    const char *slash = std::strrchr(path, '/');
    if (!slash)
        return false;
    collection.assign(path, static_cast<std::size_t>(slash - path));
    if (collection.empty())
        collection = "/"; // "/name": the root
    name = slash + 1;
    return true;
}

} // namespace

bool CH_Collection::isValidChannelName(const char *name)
{
    if (!name)
        return false;
    for (const char *p = name; *p; ++p)
        if (!chIsNameCharacter(static_cast<unsigned char>(*p)))
            return false;
    return true;
}

bool CH_Collection::isNameFree(const char *name, const CH_Channel *channel) const
{
    CH_Channel *holder = getChannel(name);
    return !holder || holder == channel;
}

// ---- Lookup -------------------------------------------------------------------------

CH_Channel *CH_Collection::getChannel(int index) const
{
    return index >= 0 && index < myChannels.entries() ? myChannels(index) : nullptr;
}

CH_Channel *CH_Collection::findChannel(const char *path) const
{
    if (!path)
        return nullptr;
    std::string where;
    const char *name;
    if (!chSplitPath(path, where, name))
        return getChannel(path);
    CH_Collection *collection = findCollection(where.c_str());
    return collection ? collection->getChannel(name) : nullptr;
}

CH_Channel *CH_Collection::findOrCreateChannel(const char *path)
{
    if (!path)
        return nullptr;
    std::string where;
    const char *name;
    CH_Collection *collection = this;
    if (chSplitPath(path, where, name))
        collection = findCollection(where.c_str());
    else
        name = path;
    if (!collection)
        return nullptr;
    CH_Channel *channel = collection->getChannel(name);
    return channel ? channel : collection->addChannel(name);
}

int CH_Collection::getChannels(UT_PtrArray<CH_Channel *> &channels, const char *pattern) const
{
    if (pattern && pattern[0] == '@')
        return myManager ? myManager->findChannelsFromGroups(channels, pattern + 1) : 0;
    const bool reverse = UT_EnvControl::getInt(UT_EnvControl::REVERSE_CHANNEL_SEARCH) != 0;
    const int n = myChannels.entries();
    int found = 0;
    for (int k = 0; k < n; ++k) {
        CH_Channel *c = myChannels(reverse ? n - 1 - k : k);
        if (UT_String::multiMatch(c->getName(), pattern)) {
            channels.append(c);
            ++found;
        }
    }
    return found;
}

int CH_Collection::getChannels(UT_PtrArray<CH_Channel *> &channels, int) const
{
    for (CH_Channel *c : myChannels)
        channels.append(c);
    return myChannels.entries();
}

int CH_Collection::getChannelNames(UT_PtrArray<const char *> &names, int) const
{
    for (CH_Channel *c : myChannels)
        names.append(c->getName());
    return myChannels.entries();
}

// ---- Adding and deleting ------------------------------------------------------------

CH_Channel *CH_Collection::addChannel(const char *name, float default_value,
                                      const char *default_string)
{
    if (!isValidChannelName(name))
        return nullptr;
    if (CH_Channel *existing = getChannel(name))
        return existing;
    return adopt(new CH_Channel(this, name, default_value, default_string));
}

CH_Channel *CH_Collection::addChannel(CH_Channel *channel)
{
    if (!channel || !isValidChannelName(channel->getName()) || getChannel(channel->getName()))
        return nullptr;
    if (channel->hasAlias() && (!isValidChannelName(channel->getAlias()) || getChannel(channel->getAlias())))
        return nullptr;
    CH_Collection *owner = channel->getCollection();
    if (owner && owner->myChannels.find(channel) >= 0)
        return nullptr; // still listed there
    channel->setCollection(this);
    return adopt(channel);
}

CH_Channel *CH_Collection::adopt(CH_Channel *channel)
{
    myNames.addSymbol(channel->getName(), channel);
    if (channel->hasAlias())
        myNames.addSymbol(channel->getAlias(), channel);
    myChannels.append(channel);
    relinkRotationTriple(channel->getName());
    if (channel->hasAlias())
        relinkRotationTriple(channel->getAlias());
    CHevent(CH_CHANNELS_ADDED, channel);
    return channel;
}

CH_Channel *CH_Collection::dupChannel(const CH_Channel &from)
{
    if (getChannel(from.getName()) || (from.hasAlias() && getChannel(from.getAlias())))
        return nullptr;
    return adopt(new CH_Channel(this, from));
}

CH_Channel *CH_Collection::dupChannel(const char *path)
{
    const CH_Channel *from = findChannel(path);
    return from ? dupChannel(*from) : nullptr;
}

void CH_Collection::deleteChannel(unsigned index)
{
    if (index >= static_cast<unsigned>(myChannels.entries()))
        return;
    CH_Channel *channel = myChannels(static_cast<int>(index));
    // Announced while it is whole: a batch drops what it holds for it.
    CHevent(CH_CHANNELS_DELETED, channel);
    // The event may have been handled by code that changed the list.
    int i = myChannels.find(channel);
    if (i < 0)
        return;
    UT_String name(channel->getName()), alias(channel->hasAlias() ? channel->getAlias() : "");
    if (alias.isstring() && getChannel(alias) == channel)
        myNames.deleteSymbol(alias);
    if (getChannel(name) == channel)
        myNames.deleteSymbol(name);
    myChannels.removeIndex(i);
    delete channel;
    relinkRotationTriple(name);
    if (alias.isstring())
        relinkRotationTriple(alias);
}

void CH_Collection::deleteChannel(CH_Channel *channel)
{
    // Searched from the end: deletions usually undo recent additions.
    for (int i = myChannels.entries() - 1; i >= 0; --i)
        if (myChannels(i) == channel) {
            deleteChannel(static_cast<unsigned>(i));
            return;
        }
}

void CH_Collection::deleteChannel(const char *name)
{
    if (CH_Channel *channel = getChannel(name))
        deleteChannel(channel);
}

void CH_Collection::deleteChannels()
{
    while (!myChannels.isEmpty())
        deleteChannel(static_cast<unsigned>(myChannels.entries() - 1));
}

void CH_Collection::replaceChannel(const CH_Channel *from, CH_Channel *to)
{
    int i = myChannels.find(const_cast<CH_Channel *>(from));
    if (i < 0)
        return;
    myChannels(i) = to;
    reenterNames(to, from);
}

void CH_Collection::reenterNames(CH_Channel *channel, const CH_Channel *was)
{
    if (myChannels.find(channel) < 0)
        return;
    if (getChannel(channel->getName()) == was)
        myNames.addSymbol(channel->getName(), channel);
    if (channel->hasAlias() && getChannel(channel->getAlias()) == was)
        myNames.addSymbol(channel->getAlias(), channel);
    relinkRotationTriple(channel->getName());
    relinkRotationChannel(channel); // its own triple too, when its name is no axis
}

// ---- Names ----------------------------------------------------------------------------

int CH_Collection::rename(const char *old_name, const char *new_name, const char *new_alias)
{
    CH_Channel *channel = getChannel(old_name);
    return channel ? rename(channel, new_name, new_alias) : 0;
}

int CH_Collection::rename(CH_Channel *channel, const char *new_name, const char *new_alias)
{
    if (!channel || channel->getCollection() != this || getChannel(channel->getName()) != channel)
        return 0;
    if (!canAccessChannel(theEditAccess, channel))
        return 0;
    if (!isValidChannelName(new_name) || !isNameFree(new_name, channel))
        return 0;
    // No alias, or none distinct from the name, leaves the channel without one.
    const bool aliased = new_alias && *new_alias && std::strcmp(new_alias, new_name) != 0;
    if (aliased && (!isValidChannelName(new_alias) || !isNameFree(new_alias, channel)))
        return 0;
    UT_String old_name(channel->getName()), old_alias(channel->hasAlias() ? channel->getAlias() : "");
    if (old_alias.isstring())
        myNames.deleteSymbol(old_alias);
    myNames.deleteSymbol(old_name);
    channel->setAlias("");
    channel->setName(new_name);
    myNames.addSymbol(new_name, channel);
    if (aliased) {
        channel->setAlias(new_alias);
        myNames.addSymbol(new_alias, channel);
    }
    for (const char *changed : {old_name.c_str(), old_alias.c_str(), new_name, aliased ? new_alias : ""})
        if (*changed)
            relinkRotationTriple(changed);
    // A channel renamed out of its triple must drop it: that would otherwise
    // keep its old siblings, even after they are deleted.
    relinkRotationChannel(channel);
    notifyChannelRenameDependents(old_name, new_name);
    return 1;
}

bool CH_Collection::setChannelAlias(CH_Channel &channel, const char *alias)
{
    if (!alias || channel.getCollection() != this || getChannel(channel.getName()) != &channel)
        return false;
    if (!canAccessChannel(theEditAccess, &channel))
        return false;
    const bool none = !*alias || !std::strcmp(alias, channel.getName());
    if (!none && (!isValidChannelName(alias) || !isNameFree(alias, &channel)))
        return false;
    UT_String old_alias(channel.hasAlias() ? channel.getAlias() : "");
    if (old_alias.isstring())
        myNames.deleteSymbol(old_alias);
    channel.setAlias(none ? "" : alias);
    if (!none)
        myNames.addSymbol(alias, &channel);
    if (old_alias.isstring())
        relinkRotationTriple(old_alias);
    if (!none)
        relinkRotationTriple(alias);
    return true;
}

// ---- Rotation triples ----------------------------------------------------------------
//
// qlinear() reads the triple of the channel it interpolates: resolving it
// here, on the editing thread, whenever a name that could belong to it
// changes, keeps name lookups off the evaluation path.

void CH_Collection::relinkRotationTriple(const char *name)
{
    std::size_t n = name ? std::strlen(name) : 0;
    if (n == 0 || name[n - 1] < 'x' || name[n - 1] > 'z')
        return;
    std::string member(name);
    for (char axis = 'x'; axis <= 'z'; ++axis) {
        member[n - 1] = axis;
        CH_Channel *c = getChannel(member.c_str());
        // The triple belongs to the channel of that name; a channel found by
        // its alias has a triple of its own name.
        if (c && member == c->getName())
            relinkRotationChannel(c);
    }
}

void CH_Collection::relinkRotationChannel(CH_Channel *channel)
{
    const char *name = channel->getName();
    std::size_t n = std::strlen(name);
    if (n == 0 || name[n - 1] < 'x' || name[n - 1] > 'z') {
        channel->setRotationTriple(nullptr, nullptr, nullptr);
        return;
    }
    std::string member(name);
    CH_Channel *triple[3];
    for (int i = 0; i < 3; ++i) {
        member[n - 1] = static_cast<char>('x' + i);
        triple[i] = getChannel(member.c_str());
    }
    // One channel is never two axes (its alias naming another): no triple.
    if ((triple[0] && (triple[0] == triple[1] || triple[0] == triple[2])) ||
        (triple[1] && triple[1] == triple[2]))
        triple[0] = triple[1] = triple[2] = nullptr;
    channel->setRotationTriple(triple[0], triple[1], triple[2]);
}

// ---- Queries ---------------------------------------------------------------------------

bool CH_Collection::getCollectionRange(float &start, float &end, bool &time_dependent, int thread)
{
    time_dependent = false;
    const float time = myManager ? static_cast<float>(myManager->getEvaluateTime(thread)) : 0.0f;
    bool any = false;
    for (CH_Channel *c : myChannels) {
        evaluate(c, time, false, thread);
        if (c->isTimeDependent())
            time_dependent = true;
        // One constant key spans no time.
        if (c->getNKeys() == 1) {
            const CH_Segment *only = c->getSegment(0u);
            const unsigned kinds = CH_SegmentFlags::FUNCTION_BITS & ~CH_SegmentFlags::CONSTANT;
            if (only && (only->getFlags() & kinds) == 0 && only->getNKnots() == 0)
                continue;
        }
        const float s = c->getStart(), e = c->getStart() + c->getLength();
        if (!any || s < start)
            start = s;
        if (!any || e > end)
            end = e;
        any = true;
    }
    return any;
}

float CH_Collection::findKey(float time, int direction) const
{
    if (direction == 0)
        return time;
    const float tol = getTolerance();
    float best = time;
    bool found = false;
    // Last to first; of two as near the one found first stays.
    for (int i = myChannels.entries() - 1; i >= 0; --i) {
        const float k = myChannels(i)->findKey(time, static_cast<float>(direction));
        const bool beyond = direction > 0 ? k - time > tol : time - k > tol;
        if (beyond && (!found || (direction > 0 ? k < best : k > best))) {
            best = k;
            found = true;
        }
    }
    return best;
}

bool CH_Collection::findString(const char *text, bool whole_word, bool case_sensitive) const
{
    for (const CH_Channel *c : myChannels)
        if (c->findString(text, whole_word, case_sensitive))
            return true;
    return false;
}

int CH_Collection::changeString(const char *from, const char *to, bool whole_word, int thread)
{
    int count = 0;
    for (CH_Channel *c : myChannels)
        count += c->changeString(from, to, whole_word, true, thread);
    return count;
}

int CH_Collection::channelFind(const char *pattern, CH_ChannelFindCallback callback, void *data)
{
    int found = 0;
    UT_String path;
    // By index, re-reading the list: a callback that deletes channels makes
    // the walk skip some, never read a freed one.
    for (int i = 0; i < myChannels.entries(); ++i) {
        CH_Channel *c = myChannels(i);
        getFullPath(c, path, false);
        if (UT_String::multiMatch(c->getName(), pattern) || UT_String::multiMatch(path, pattern)) {
            ++found;
            if (callback)
                callback(c, data);
        }
    }
    return found;
}

void CH_Collection::setExprLanguage(CH_ExprLanguage language)
{
    myExprLanguage = language;
    for (CH_Channel *c : myChannels)
        for (int i = 0; i < c->getNSegments(); ++i) {
            CH_Segment *s = c->getSegment(static_cast<unsigned>(i));
            if (s && s->expressionIsAnimationFunctionCall())
                s->setExprLanguage(language);
        }
}
