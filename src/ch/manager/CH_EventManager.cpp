#include <ch/manager/CH_EventManager.h>

#include <ch/channel/CH_Channel.h>
#include <ch/io/CH_Collection.h>
#include <ch/manager/CH_Manager.h>

#include <cstdint>

CH_Collection *CH_EventHandler::ownerOf(CH_CHANGE_TYPE type, void *data)
{
    if (type >= CH_CHANNELS_DELETED && type <= CH_PERMISSION_CHANGED)
        return data ? static_cast<CH_Channel *>(data)->getCollection() : nullptr;
    if (type >= CH_GROUP_CREATED && type <= CH_GROUP_CHANGED)
    {
        CH_Manager *mgr = CH_Manager::getContext();
        return mgr ? mgr->getRootCollection() : nullptr;
    }
    if (type == CH_SCOPE_CHANGED)
        return static_cast<CH_Collection *>(data);
    return nullptr;
}

namespace {

// Every deletion passes here, whichever handler is current; a batch still
// being delivered is not current and must hear of it too. Out of line, so
// that the common path of immediate delivery stays a bare forwarding call.
__attribute__((noinline)) void chDeliverDeletion(CH_Collection *target, void *data)
{
    CHgetEventManager()->channelDeleted(data);
    target->setChanged(CH_CHANNELS_DELETED, data);
}

} // namespace

void CH_EventHandler::event(CH_CHANGE_TYPE type, void *data)
{
    CH_Collection *target = ownerOf(type, data);
    if (!target)
        return;
    if (type == CH_CHANNELS_DELETED)
        return chDeliverDeletion(target, data);
    target->setChanged(type, type == CH_SCOPE_CHANGED ? nullptr : data);
}

void CH_EventHandler::forget(CH_Collection *) {}

void CH_EventHandler::forgetChannel(void *) {}

namespace {

// Kinds held back by a batch, and each one's bit in an entry.
constexpr int theFirstHeld = CH_CHANNELS_MAJOR_CHANGE;
constexpr int theLastHeld = CH_PERMISSION_CHANGED;

inline unsigned heldBit(int type) { return 1u << (type - theFirstHeld); }

// Fibonacci hashing: the product's high bits mix the pointer's middle bits,
// so aligned allocations spread over the table.
inline std::size_t slotOf(const void *data, std::size_t mask)
{
    const std::uint64_t h = static_cast<std::uint64_t>(reinterpret_cast<std::uintptr_t>(data))
                            * 0x9E3779B97F4A7C15ull;
    return static_cast<std::size_t>(h >> 32) & mask;
}

} // namespace

CH_EventHandlerHash::~CH_EventHandlerHash()
{
    // Each delivery clears its bit (or the scope flag) before calling out,
    // and every slot is read afresh: a setChanged may make this handler
    // forget a collection meanwhile.
    if (myScopeChangePending && myScopeChangeTarget)
    {
        myScopeChangePending = false;
        static_cast<CH_Collection *>(myScopeChangeTarget)->setChanged(CH_SCOPE_CHANGED, nullptr);
    }
    for (int type = theFirstHeld; type <= theLastHeld; ++type)
    {
        const unsigned bit = heldBit(type);
        for (std::size_t i = 0; mySlots && i <= myMask; ++i)
        {
            chHeld &held = mySlots[i];
            if (!(held.types & bit))
                continue;
            held.types &= ~bit;
            held.owner->setChanged(static_cast<CH_CHANGE_TYPE>(type), held.data);
        }
    }
}

CH_EventHandlerHash::chHeld *CH_EventHandlerHash::find(void *data)
{
    if (!mySlots)
        return nullptr;
    for (std::size_t i = slotOf(data, myMask);; i = (i + 1) & myMask)
    {
        chHeld &held = mySlots[i];
        if (held.data == data)
            return &held;
        if (!held.data)
            return nullptr;
    }
}

void CH_EventHandlerHash::grow()
{
    const std::size_t capacity = mySlots ? 2 * (myMask + 1) : 64;
    std::unique_ptr<chHeld[]> old = std::move(mySlots);
    const std::size_t old_capacity = old ? myMask + 1 : 0;
    mySlots.reset(new chHeld[capacity]());
    myMask = capacity - 1;
    myUsed = 0;
    myLast = nullptr;
    for (std::size_t i = 0; myOwners && i <= myOwnerMask; ++i)
        myOwners[i].head = 0;
    for (std::size_t i = 0; i < old_capacity; ++i)
    {
        // Emptied entries are left behind; the others are chained afresh.
        if (!old[i].types)
            continue;
        std::size_t j = slotOf(old[i].data, myMask);
        while (mySlots[j].data)
            j = (j + 1) & myMask;
        mySlots[j] = old[i];
        chain(j);
        ++myUsed;
    }
}

CH_EventHandlerHash::chOwner *CH_EventHandlerHash::findOwner(CH_Collection *owner)
{
    if (!myOwners)
        return nullptr;
    for (std::size_t i = slotOf(owner, myOwnerMask);; i = (i + 1) & myOwnerMask)
    {
        chOwner &o = myOwners[i];
        if (o.owner == owner)
            return &o;
        if (!o.owner)
            return nullptr;
    }
}

void CH_EventHandlerHash::chain(std::size_t slot)
{
    CH_Collection *owner = mySlots[slot].owner;
    chOwner *o = findOwner(owner);
    if (!o)
    {
        // Collections are never removed from this table (a forgotten one
        // keeps an empty chain), so it only grows.
        if (2 * (myOwnerCount + 1) > (myOwners ? myOwnerMask + 1 : 0))
        {
            const std::size_t capacity = myOwners ? 2 * (myOwnerMask + 1) : 16;
            std::unique_ptr<chOwner[]> old = std::move(myOwners);
            const std::size_t old_capacity = old ? myOwnerMask + 1 : 0;
            myOwners.reset(new chOwner[capacity]());
            myOwnerMask = capacity - 1;
            for (std::size_t i = 0; i < old_capacity; ++i)
            {
                if (!old[i].owner)
                    continue;
                std::size_t j = slotOf(old[i].owner, myOwnerMask);
                while (myOwners[j].owner)
                    j = (j + 1) & myOwnerMask;
                myOwners[j] = old[i];
            }
        }
        std::size_t i = slotOf(owner, myOwnerMask);
        while (myOwners[i].owner)
            i = (i + 1) & myOwnerMask;
        o = &myOwners[i];
        o->owner = owner;
        o->head = 0;
        ++myOwnerCount;
    }
    mySlots[slot].next = o->head;
    o->head = static_cast<std::uint32_t>(slot + 1);
}

void CH_EventHandlerHash::unchain(std::size_t slot)
{
    chOwner *o = findOwner(mySlots[slot].owner);
    if (!o)
        return;
    for (std::uint32_t *link = &o->head; *link; link = &mySlots[*link - 1].next)
        if (*link == slot + 1)
        {
            *link = mySlots[slot].next;
            break;
        }
    mySlots[slot].next = 0;
}

// The slow side of holding an event: a new entry, or one whose channel is
// now in another collection (or whose collection was forgotten).
__attribute__((noinline)) void CH_EventHandlerHash::hold(void *data, CH_Collection *owner,
                                                         unsigned bit, chHeld *held)
{
    if (!held)
    {
        // Keep the table at most half full.
        if (2 * (myUsed + 1) > (mySlots ? myMask + 1 : 0))
            grow();
        std::size_t i = slotOf(data, myMask);
        while (mySlots[i].data)
            i = (i + 1) & myMask;
        held = &mySlots[i];
        held->data = data;
        held->owner = nullptr;
        held->types = 0;
        held->next = 0;
        ++myUsed;
    }
    const std::size_t slot = static_cast<std::size_t>(held - mySlots.get());
    if (held->owner)
        unchain(slot);
    held->owner = owner;
    chain(slot);
    held->types |= bit;
    myLast = held;
}

void CH_EventHandlerHash::event(CH_CHANGE_TYPE type, void *data)
{
    if (type >= theFirstHeld && type <= theLastHeld)
    {
        CH_Collection *owner = data ? static_cast<CH_Channel *>(data)->getCollection() : nullptr;
        if (!owner)
            return;
        // Edits usually come in runs on one channel.
        chHeld *held = myLast && myLast->data == data ? myLast : find(data);
        if (held && held->owner == owner)
        {
            held->types |= heldBit(type);
            myLast = held;
            return;
        }
        hold(data, owner, heldBit(type), held);
        return;
    }
    if (type == CH_CHANNELS_DELETED)
    {
        // A deleted channel must not be reported later.
        forgetChannel(data);
        CH_EventHandler::event(type, data);
        return;
    }
    if (type == CH_SCOPE_CHANGED)
    {
        myScopeChangeTarget = data;
        myScopeChangePending = true;
        return;
    }
    CH_EventHandler::event(type, data);
}

void CH_EventHandlerHash::forgetChannel(void *channel)
{
    if (chHeld *held = channel ? find(channel) : nullptr)
        held->types = 0;
}

void CH_EventHandlerHash::forget(CH_Collection *collection)
{
    if (!collection)
        return;
    if (myScopeChangeTarget == collection)
    {
        myScopeChangeTarget = nullptr;
        myScopeChangePending = false;
    }
    chOwner *o = findOwner(collection);
    if (!o)
        return;
    for (std::uint32_t slot = o->head; slot;)
    {
        chHeld &held = mySlots[slot - 1];
        slot = held.next;
        held.types = 0;
        held.owner = nullptr;
        held.next = 0;
    }
    o->head = 0;
}

CH_EventManager::CH_EventManager() : myDefault(new CH_EventHandler), myHandler(myDefault) {}

CH_EventManager::~CH_EventManager()
{
    if (myHandler != myDefault)
        delete myHandler;
    delete myDefault;
}

void CH_EventManager::beginHandlingEvents(CH_EventHandlerFactory factory)
{
    if (factory && myHandler == myDefault)
        myHandler = factory();
    else
        ++myDepth;
}

void CH_EventManager::endHandlingEvents()
{
    if (myDepth > 0)
    {
        --myDepth;
        return;
    }
    // An unpaired end keeps the default handler rather than deleting it.
    if (myHandler != myDefault)
    {
        CH_EventHandler *batch = myHandler;
        myHandler = myDefault;
        myFlushing.push_back(batch);
        delete batch; // delivers what it held
        myFlushing.pop_back();
    }
}

void CH_EventManager::collectionDestroyed(CH_Collection *collection)
{
    myHandler->forget(collection);
    for (CH_EventHandler *flushing : myFlushing)
        flushing->forget(collection);
}

CH_EventManager *CHgetEventManager()
{
    static CH_EventManager *theManager = new CH_EventManager;
    return theManager;
}

void CHevent(CH_CHANGE_TYPE type, void *data)
{
    CHgetEventManager()->getHandler()->event(type, data);
}
