// Channel structure: segments, the end segment, disabled ranges, pending
// state and queries. Evaluation is in CH_ChannelEval.cpp.
#include <ch/channel/CH_Channel.h>

#include <ch/channel/CH_Key.h>
#include <ch/expr/CH_Expression.h>
#include <ch/io/CH_Collection.h>
#include <ch/manager/CH_EventManager.h>
#include <ch/manager/CH_Manager.h>

#include <ut/UT_Thread.h>

#include <cfloat>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <utility>

namespace {

constexpr float thePendingReset = FLT_MAX; // bit pattern 0x7F7FFFFF

CH_Manager *managerOf(CH_Collection *collection)
{
    CH_Manager *mgr = collection ? collection->getManager() : nullptr;
    return mgr ? mgr : CH_Manager::getContext();
}

} // namespace

CH_Channel::CH_Channel(CH_Collection *collection, const char *name, float default_value,
                       const char *default_string)
    : myCollection(collection), myManager(managerOf(collection)), myName(name),
      myDefaultValue(default_value),
      myDefaultString(default_string), myPendingTime(thePendingReset)
{
    CH_Manager *mgr = getManager();
    myScoped = mgr && mgr->isChannelScoped(this);
    if (myScoped)
        mgr->scopeChanged(1, true);
}

CH_Channel::CH_Channel(CH_Collection *collection, const CH_Channel &from)
    : myCollection(collection), myManager(managerOf(collection)), myName(from.myName),
      myPendingTime(thePendingReset)
{
    copyContents(from);
    myName = from.myName;
    if (std::strcmp(from.getAlias(), from.myName) != 0)
        myAlias = from.myAlias;
    CH_Manager *mgr = getManager();
    myScoped = mgr && mgr->isChannelScoped(this);
    if (myScoped)
        mgr->scopeChanged(1, true);
}

void CH_Channel::setCollection(CH_Collection *collection)
{
    myCollection = collection;
    myManager = managerOf(collection);
}

CH_Channel::~CH_Channel()
{
    if (myManager)
    {
        // The manager must not keep this channel as pending or in its
        // sorted list of scoped channels.
        myManager->removePendingChannel(this);
        myManager->scopeChanged(1, false);
    }
    for (CH_Segment *s : mySegments)
        delete s;
    for (CH_Segment *s : myDisableSegments)
        delete s;
    delete myEndSegment;
}

float CH_Channel::getTolerance() const
{
    return myManager ? myManager->getTolerance() : 1.0f / 2400.0f;
}

void CH_Channel::getFullPath(UT_String &path) const
{
    if (!myCollection)
    {
        path = myName;
        return;
    }
    myCollection->getFullPath(path);
    if (std::strcmp(path, "/") != 0)
        path += "/";
    path += myName;
}

CH_ExprLanguage CH_Channel::getCollectionExprLanguage() const
{
    return myCollection ? myCollection->getExprLanguage() : CH_ORVISH;
}

bool CH_Channel::isRotationChannel() const
{
    return myName == "rx" || myName == "ry" || myName == "rz";
}

int CH_Channel::match(const char *pattern) const
{
    if (!pattern)
        return 0;
    std::string name = myName.c_str(), alias = getAlias();
    const CH_Collection *c = myCollection;
    for (const char *p = pattern; (p = std::strchr(p, '/')); ++p)
    {
        if (!c)
            return 0;
        std::string prefix = c->getParent() ? c->getName() : "";
        prefix += "/";
        name = prefix + name;
        alias = prefix + alias;
        c = c->getParent();
    }
    if (UT_String::multiMatch(name.c_str(), pattern, true, ", "))
        return 1;
    return UT_String::multiMatch(alias.c_str(), pattern, true, ", ") ? 1 : 0;
}

const char *CH_Channel::getChannelTypeName(int behavior)
{
    switch (behavior)
    {
    case CH_CHANNEL_DEFAULT: return "Default";
    case CH_CHANNEL_HOLD: return "Hold";
    case CH_CHANNEL_CYCLE: return "Cycle";
    case CH_CHANNEL_EXTEND: return "Extend";
    case CH_CHANNEL_SLOPE: return "Slope";
    }
    return "Unknown";
}

// ---- Flags ----------------------------------------------------------------------

void CH_Channel::setChanged(bool on, CH_CHANGE_TYPE type)
{
    if (!on)
    {
        setFlag(theChanged, false);
        return;
    }
    setFlag(theChanged, true);
    CHevent(type, this);
    if (myEndSegment)
        for (int i = mySegments.entries(); i >= 0; --i)
            getSegment(static_cast<unsigned>(i))->setModified(1);
    for (CH_Segment *d : myDisableSegments)
        d->setModified(1);
}

void CH_Channel::setLocked(bool on)
{
    if (getLocked() == on)
        return;
    setFlag(theLocked, on);
    CHevent(CH_CHANNEL_CHANGED, this);
}

void CH_Channel::setScope(bool on)
{
    if (myScoped == on)
        return;
    if (myCollection && myCollection->getExternal())
        return;
    CH_Manager *mgr = getManager();
    myScoped = mgr ? mgr->scopeChannelInternal(this, on) : on;
}

// ---- Segment list ------------------------------------------------------------------

int CH_Channel::getSegmentIndex(const CH_Segment *s) const
{
    if (s && s == myEndSegment)
        return mySegments.entries();
    return mySegments.find(const_cast<CH_Segment *>(s));
}

CH_Segment *CH_Channel::getNextSegment(unsigned index) const
{
    unsigned n = static_cast<unsigned>(mySegments.entries());
    if (n && index < n - 1)
        return mySegments(static_cast<int>(index + 1));
    if (n && index == n - 1)
        return myRightBehavior == CH_CHANNEL_CYCLE ? mySegments(0) : myEndSegment;
    if (index == n)
    {
        if (n)
            return mySegments(0);
        return myRightBehavior == CH_CHANNEL_CYCLE ? nullptr : myEndSegment;
    }
    return nullptr;
}

CH_Segment *CH_Channel::getPrevSegment(unsigned index) const
{
    unsigned n = static_cast<unsigned>(mySegments.entries());
    if (index > 0 && index <= n)
        return mySegments(static_cast<int>(index - 1));
    if (index == 0)
        return myLeftBehavior != CH_CHANNEL_CYCLE ? myEndSegment : (n ? mySegments.last() : nullptr);
    return nullptr;
}

CH_Segment *CH_Channel::getNextSegment(const CH_Segment *s) const
{
    int i = mySegments.find(const_cast<CH_Segment *>(s));
    return i >= 0 && i + 1 < mySegments.entries() ? mySegments(i + 1) : nullptr;
}

CH_Segment *CH_Channel::getPrevSegment(const CH_Segment *s) const
{
    int i = mySegments.find(const_cast<CH_Segment *>(s));
    return i > 0 ? mySegments(i - 1) : nullptr;
}

void CH_Channel::linkSegments()
{
    int n = mySegments.entries();
    for (int i = 0; i < n; ++i)
        mySegments(i)->setPrevNext(i ? mySegments(i - 1) : nullptr,
                                   i + 1 < n ? mySegments(i + 1) : myEndSegment);
    if (myEndSegment)
        myEndSegment->setPrevNext(n ? mySegments.last() : nullptr, nullptr);
}

void CH_Channel::adjustSegmentTimes(bool)
{
    float t = 0.0f;
    myIndex.resize(mySegments.entries());
    for (int i = 0; i < mySegments.entries(); ++i)
    {
        CH_Segment *s = mySegments(i);
        float len = s->getLength();
        myIndex.set(i, t);
        s->changeTimes(t, t + len);
        t += len;
    }
    myIndex.set(mySegments.entries(), t);
    myIndex.finish();
    myLength = t;
    if (myEndSegment)
        myEndSegment->changeTimes(myLength, myLength);
    linkSegments();
}

void CH_Channel::cook(CH_Segment *s, int on)
{
    int samples = 0;
    if (on)
    {
        CH_Manager *mgr = getManager();
        float rate = mgr ? mgr->getSamplesPerSec() : 24.0f;
        samples = static_cast<int>(rate * s->getLength() + 0.5f) + 1;
    }
    s->cook(on, samples);
}

void CH_Channel::appendSegment(CH_Segment *s)
{
    mySegments.append(s);
    s->setChannel(this);
    adjustSegmentTimes(true);
    cook(s, isCooking());
}

void CH_Channel::insertSegment(CH_Segment *s, unsigned index)
{
    if (index >= static_cast<unsigned>(mySegments.entries()))
        mySegments.append(s);
    else
        mySegments.insert(s, static_cast<int>(index));
    s->setChannel(this);
    adjustSegmentTimes(true);
}

void CH_Channel::removeSegment(CH_Segment *s)
{
    int i = mySegments.find(s);
    if (i < 0 && (!s || s != myEndSegment))
        return;
    {
        CH_AutoEventHandler batch;
        if (i >= 0)
            mySegments.removeIndex(i);
        else if (mySegments.isEmpty())
            myEndSegment = nullptr;
        else
        {
            // The last list segment becomes the new end segment.
            myEndSegment = mySegments.last();
            mySegments.removeIndex(mySegments.entries() - 1);
            myEndSegment->changeLength(0.0f, CH_SCALE_ANY, true);
        }
        s->setPrevNext(nullptr, nullptr);
        adjustSegmentTimes(true);
        CHevent(CH_CHANNELS_MAJOR_CHANGE, this);
    }
}

void CH_Channel::removeSegment(unsigned index)
{
    removeSegment(getSegment(index));
}

void CH_Channel::deleteSegment(CH_Segment *s)
{
    if (mySegments.find(s) < 0 && (!s || s != myEndSegment))
        return;
    removeSegment(s);
    delete s;
}

void CH_Channel::destroyEndSegment()
{
    delete myEndSegment;
    myEndSegment = nullptr;
    linkSegments();
}

void CH_Channel::clear()
{
    for (CH_Segment *s : mySegments)
        delete s;
    mySegments.clear();
    for (CH_Segment *s : myDisableSegments)
        delete s;
    myDisableSegments.clear();
    delete myEndSegment;
    myEndSegment = nullptr;
    myLength = 0.0f;
    myIndex.clear();
}

void CH_Channel::initializeSegmentParents()
{
    for (CH_Segment *s : mySegments)
        s->setChannel(this);
    for (CH_Segment *s : myDisableSegments)
        s->setChannel(this);
    if (myEndSegment)
        myEndSegment->setChannel(this);
}

void CH_Channel::ensureEndSegmentCreated()
{
    if (myEndSegment || mySegments.isEmpty())
        return;
    CH_Segment *last = mySegments.last();
    if (last->getLength() == 0.0f)
    {
        mySegments.removeIndex(mySegments.entries() - 1);
        myEndSegment = last;
        float tol = getTolerance();
        CH_Manager *mgr = getManager();
        float rate = mgr ? mgr->getSamplesPerSec() : 24.0f;
        float t = myStart;
        for (CH_Segment *s : mySegments)
        {
            if (s->getLength() >= -tol && s->getLength() <= tol)
            {
                UT_String path;
                getFullPath(path);
                std::printf("Overlapped key(s) found on %s at frame %g\n", path.c_str(),
                            CH_Manager::niceNumber(t * rate + 1.0f, 3));
            }
            t += s->getLength();
        }
    }
    else
    {
        auto *end = new CH_Segment(*last);
        end->changeLength(0.0f, CH_SCALE_ANY, true);
        end->changeTimes(myLength, myLength);
        // The out half comes from the first segment, so a cycling channel's
        // last key continues into its first.
        CH_Key key;
        CH_Segment *first = mySegments(0);
        for (CH_ValueTypes t : {CH_VALUE, CH_SLOPE, CH_ACCEL})
        {
            key.myIn.myV[t] = last->getValue(false, t);
            key.myOut.myV[t] = first->getValue(true, t);
            key.myIn.myValid[t] = key.myOut.myValid[t] = true;
        }
        myEndSegment = end;
        key.put(end, end, true);
    }
    adjustSegmentTimes(false);
}

void CH_Channel::updateEndSegment()
{
    if (myCollection && !myCollection->canAccessChannel(0x92, this))
        return;
    CH_Manager *mgr = getManager();
    const char *text;
    CH_ExprLanguage language;
    if (mgr && mgr->getAutoSplit() && !mySegments.isEmpty())
    {
        text = mySegments.last()->getExpression();
        language = mySegments.last()->getExprLanguage();
    }
    else
    {
        text = mgr ? mgr->getDefaultSplitExpression() : "";
        language = getCollectionExprLanguage();
    }
    if (!text)
        return;
    if (myEndSegment)
    {
        const char *current = myEndSegment->getExpression();
        if (current && !std::strcmp(current, text))
            return;
        myEndSegment->changeExpression(text, language);
        return;
    }
    myEndSegment = new CH_Segment(text, language, this, 0.0f);
    adjustSegmentTimes(false);
}

// ---- Disabled ranges ------------------------------------------------------------------

CH_Segment *CH_Channel::getDisableSegment(unsigned index) const
{
    return index < static_cast<unsigned>(myDisableSegments.entries())
               ? myDisableSegments(static_cast<int>(index))
               : nullptr;
}

CH_Segment *CH_Channel::getFirstDisableSegment() const
{
    return myDisableSegments.isEmpty() ? nullptr : myDisableSegments(0);
}

CH_Segment *CH_Channel::getLastDisableSegment() const
{
    return myDisableSegments.isEmpty() ? nullptr : myDisableSegments.last();
}

CH_Segment *CH_Channel::getNextDisableSegment(const CH_Segment *s) const
{
    int i = myDisableSegments.find(const_cast<CH_Segment *>(s));
    return i >= 0 && i + 1 < myDisableSegments.entries() ? myDisableSegments(i + 1) : nullptr;
}

CH_Segment *CH_Channel::getPrevDisableSegment(const CH_Segment *s) const
{
    int i = myDisableSegments.find(const_cast<CH_Segment *>(s));
    return i > 0 ? myDisableSegments(i - 1) : nullptr;
}

CH_Segment *CH_Channel::getDisableSegment(float local_time) const
{
    int i = getDisableSegmentIndex(local_time, false);
    return i < 0 ? nullptr : myDisableSegments(i);
}

bool CH_Channel::isAllDisabled() const
{
    if (myDisableSegments.entries() != 1)
        return false;
    const CH_Segment *d = myDisableSegments(0);
    return d->getStart() <= 0.0f && d->getEnd() >= myLength;
}

void CH_Channel::appendDisableSegment(CH_Segment *s)
{
    myDisableSegments.append(s);
    s->setChannel(this);
}

void CH_Channel::insertDisableSegment(CH_Segment *s, unsigned index)
{
    if (index >= static_cast<unsigned>(myDisableSegments.entries()))
        myDisableSegments.append(s);
    else
        myDisableSegments.insert(s, static_cast<int>(index));
    s->setChannel(this);
}

void CH_Channel::insertDisableSegment(CH_Segment *s)
{
    int i = 0;
    while (i < myDisableSegments.entries() && myDisableSegments(i)->getStart() < s->getStart())
        ++i;
    insertDisableSegment(s, static_cast<unsigned>(i));
}

void CH_Channel::removeDisableSegment(CH_Segment *s)
{
    myDisableSegments.remove(s);
}

void CH_Channel::deleteDisableSegment(CH_Segment *s)
{
    if (myDisableSegments.find(s) < 0)
        return;
    myDisableSegments.remove(s);
    delete s;
}

void CH_Channel::deleteDisableSegment(unsigned index)
{
    deleteDisableSegment(getDisableSegment(index));
}

void CH_Channel::disable(float from, float to)
{
    float a = from - myStart, b = to - myStart;
    if (!(b > a))
        return;
    // Merge every range that overlaps or touches [a, b].
    float tol = getTolerance();
    for (int i = myDisableSegments.entries() - 1; i >= 0; --i)
    {
        CH_Segment *d = myDisableSegments(i);
        if (d->getEnd() < a - tol || d->getStart() > b + tol)
            continue;
        a = std::min(a, d->getStart());
        b = std::max(b, d->getEnd());
        deleteDisableSegment(d);
    }
    auto *d = new CH_Segment("constant()", getCollectionExprLanguage(), this, b - a);
    d->changeTimes(a, b);
    // The channel's value at a now; refreshed when the channel changes.
    float v = evaluate(a + myStart, true, 0);
    d->setInValue(v, false);
    d->setOutValue(v, false);
    insertDisableSegment(d);
    CHevent(CH_CHANNEL_CHANGED, this);
}

void CH_Channel::enable(float from, float to)
{
    float a = from - myStart, b = to - myStart;
    if (!(b > a))
        return;
    for (int i = myDisableSegments.entries() - 1; i >= 0; --i)
    {
        CH_Segment *d = myDisableSegments(i);
        float s = d->getStart(), e = d->getEnd();
        if (e <= a || s >= b)
            continue;
        if (s < a && e > b)
        {
            // Split: the part after b is a range of its own, holding the
            // value at its own start like every disabled range.
            auto *tail = new CH_Segment(*d);
            tail->changeLength(e - b, CH_SCALE_ANY, true);
            tail->changeTimes(b, e);
            tail->setModified(1);
            d->changeLength(a - s, CH_SCALE_ANY, true);
            d->changeTimes(s, a);
            insertDisableSegment(tail, static_cast<unsigned>(i + 1));
        }
        else if (s < a)
        {
            d->changeLength(a - s, CH_SCALE_ANY, true);
            d->changeTimes(s, a);
        }
        else if (e > b)
        {
            d->changeLength(e - b, CH_SCALE_ANY, true);
            d->changeTimes(b, e);
            d->setModified(1); // now starts at b: takes the value there
        }
        else
            deleteDisableSegment(d);
    }
    CHevent(CH_CHANNEL_CHANGED, this);
}

// ---- Pending ----------------------------------------------------------------------

void CH_Channel::setPending(bool on, float local_time)
{
    setFlag(thePending, on);
    if (on)
        myPendingTime = local_time;
    updatePendingStateToManager();
}

void CH_Channel::updatePendingStateToManager()
{
    if (myCollection && myCollection->getExternal())
        return;
    CH_Manager *mgr = getManager();
    if (!mgr)
        return;
    if (isPending())
        mgr->addPendingChannel(this);
    else
        mgr->removePendingChannel(this);
}

void CH_Channel::clearPending()
{
    if (!isPending())
    {
        myPendingTime = thePendingReset;
        return;
    }
    if (!isPendingHold())
    {
        setFlag(thePending, false);
        myPendingTime = thePendingReset;
        updatePendingStateToManager();
    }
    CHevent(CH_CHANNEL_CHANGED, this);
}

void CH_Channel::updatePending(float global_time)
{
    if (isPendingHold())
        return;
    if (myPendingTime != thePendingReset &&
        std::fabs(myPendingTime - (global_time - myStart)) <= 0.00001f)
        return;
    clearPending();
}

void CH_Channel::setPendingHold(int on)
{
    setFlag(thePendingHold, isPending() && on);
}

bool CH_Channel::isPendingLocal(float local_time) const
{
    if (!isPending())
        return false;
    if (isPendingHold())
        return true;
    return std::fabs(local_time - myPendingTime) <= getTolerance();
}

// ---- Queries ---------------------------------------------------------------------

void CH_Channel::dirtyExprCache()
{
    CH_AutoEventHandler batch;
    if (!myEndSegment)
        return;
    for (int i = mySegments.entries(); i >= 0; --i)
        getSegment(static_cast<unsigned>(i))->dirtyExprCache();
}

void CH_Channel::cook(int on)
{
    if (isCooking() == (on != 0))
        return;
    for (int i = mySegments.entries() - 1; i >= 0; --i)
        cook(mySegments(i), on);
    if (myEndSegment)
        cook(myEndSegment, on);
    setCooking(on != 0);
}

bool CH_Channel::isTimeDependent() const
{
    if (isEmpty())
        return false;
    if (myEndSegment && !mySegments.isEmpty())
        return true;
    const CH_Segment *only = myEndSegment ? myEndSegment : mySegments(0);
    return only->isTimeDependent();
}

bool CH_Channel::isTimeDependentSlow(int thread)
{
    if (isEmpty())
        return false;
    if (hasOnlyOneSegment())
        return myEndSegment->isTimeDependent(true, thread);
    if (myEndSegment && !mySegments.isEmpty())
        return true;
    return mySegments(0)->isTimeDependent(true, thread);
}

bool CH_Channel::isStringTimeDependentSlow(int thread)
{
    if (isEmpty())
        return false;
    if (hasOnlyOneSegment())
    {
        UT_String s;
        return myEndSegment->isTimeDependentAndGetString(s, thread);
    }
    UT_String previous, current;
    for (int i = 0; i < mySegments.entries(); ++i)
    {
        if (mySegments(i)->isTimeDependentAndGetString(current, thread))
            return true;
        if (i && current != previous)
            return true;
        previous = current;
    }
    return false;
}

bool CH_Channel::isDataDependent(float global_time) const
{
    if (!getNKeys())
        return false;
    float t = global_time - myStart;
    float tol = getTolerance();
    auto side = [](CH_ChannelBehavior b, const CH_Segment *s) {
        switch (b)
        {
        case CH_CHANNEL_DEFAULT: return false;
        case CH_CHANNEL_HOLD:
        case CH_CHANNEL_CYCLE:
        case CH_CHANNEL_EXTEND:
        case CH_CHANNEL_SLOPE: return s && s->isDataDependent();
        }
        return true;
    };
    if (t < -tol)
        return side(myLeftBehavior, mySegments.isEmpty() ? myEndSegment : mySegments(0));
    if (t - myLength >= -tol)
        return side(myRightBehavior, myEndSegment);
    const CH_Segment *s = getSegment(t);
    return s && s->isDataDependent();
}

bool CH_Channel::findString(const char *text, bool whole_word, bool case_sensitive) const
{
    if (!myEndSegment)
        return false;
    for (int i = mySegments.entries(); i >= 0; --i)
        if (getSegment(static_cast<unsigned>(i))->findString(text, whole_word, case_sensitive))
            return true;
    return false;
}

int CH_Channel::changeString(const char *from, const char *to, bool whole_word, bool notify,
                             int thread)
{
    int n = 0;
    if (myEndSegment)
        for (int i = mySegments.entries(); i >= 0; --i)
            n += getSegment(static_cast<unsigned>(i))->changeString(from, to, whole_word, thread);
    if (notify)
        CHevent(CH_CHANNEL_CHANGED, this);
    return n;
}

bool CH_Channel::isEditable() const
{
    if (!myEndSegment)
        return false;
    for (int i = mySegments.entries(); i >= 0; --i)
    {
        const CH_Segment *s = getSegment(static_cast<unsigned>(i));
        for (CH_ValueTypes t : {CH_VALUE, CH_SLOPE, CH_ACCEL})
            if (s->getValueValid(true, t) || s->getValueValid(false, t))
                return true;
    }
    return false;
}

int CH_Channel::canAccess(unsigned mask) const
{
    return myCollection ? myCollection->canAccessChannel(mask, this) : 1;
}

std::int64_t CH_Channel::getMemUsage(bool shallow) const
{
    std::int64_t size = sizeof(CH_Channel);
    if (shallow)
        return size;
    size += static_cast<std::int64_t>(myName.length() + myAlias.length() + 2);
    size += static_cast<std::int64_t>((mySegments.toStdVector().capacity() +
                                       myDisableSegments.toStdVector().capacity()) *
                                      sizeof(CH_Segment *));
    size += static_cast<std::int64_t>((mySegments.entries() + myDisableSegments.entries()) *
                                      sizeof(CH_Segment));
    return size; // like the end segment and the expressions, the lookup table is not counted
}

// ---- Whole-channel changes -----------------------------------------------------------

void CH_Channel::copyContents(const CH_Channel &from)
{
    if (&from == this)
        return;
    clear();
    for (const CH_Segment *s : from.mySegments)
    {
        auto *copy = new CH_Segment(*s);
        copy->setChannel(this);
        mySegments.append(copy);
    }
    for (const CH_Segment *s : from.myDisableSegments)
    {
        auto *copy = new CH_Segment(*s);
        copy->setChannel(this);
        copy->changeTimes(s->getStart(), s->getEnd());
        myDisableSegments.append(copy);
    }
    if (from.myEndSegment)
    {
        myEndSegment = new CH_Segment(*from.myEndSegment);
        myEndSegment->setChannel(this);
    }
    myLeftBehavior = from.myLeftBehavior;
    myRightBehavior = from.myRightBehavior;
    myDefaultValue = from.myDefaultValue;
    myDefaultString = from.myDefaultString;
    myStart = from.myStart;
    adjustSegmentTimes(true);
}

void CH_Channel::swap(CH_Channel &other)
{
    if (&other == this)
        return;
    CH_Collection *mine = myCollection, *theirs = other.myCollection;
    std::swap(myCollection, other.myCollection);
    std::swap(myName, other.myName);
    std::swap(myAlias, other.myAlias);
    std::swap(myLeftBehavior, other.myLeftBehavior);
    std::swap(myRightBehavior, other.myRightBehavior);
    std::swap(myEndSegment, other.myEndSegment);
    std::swap(myDefaultValue, other.myDefaultValue);
    std::swap(myStart, other.myStart);
    std::swap(myLength, other.myLength);
    std::swap(myDefaultString, other.myDefaultString);
    std::swap(mySegments, other.mySegments);
    std::swap(myDisableSegments, other.myDisableSegments);
    std::swap(myScoped, other.myScoped);
    std::swap(myTemporary, other.myTemporary);
    std::swap(myFlags, other.myFlags);
    std::swap(myPendingTime, other.myPendingTime);
    myIndex.swap(other.myIndex);
    myManager = managerOf(myCollection);
    other.myManager = managerOf(other.myCollection);
    initializeSegmentParents();
    other.initializeSegmentParents();
    // Between collections the two also change places in the collections'
    // lists, so each lists exactly the channels that point to it. (Within
    // one, as for editing a temporary copy, the list stays as it is and
    // only the names the two listed channels exchanged are re-entered.)
    if (mine != theirs)
    {
        if (mine)
            mine->replaceChannel(this, &other);
        if (theirs)
            theirs->replaceChannel(&other, this);
    }
    else if (mine)
    {
        mine->reenterNames(this, &other);
        mine->reenterNames(&other, this);
    }
}

void CH_Channel::swapContents(CH_Channel &other)
{
    CH_Channel temporary(myCollection, *this);
    copyContents(other);
    other.copyContents(temporary);
}
