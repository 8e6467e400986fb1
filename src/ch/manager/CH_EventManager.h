#ifndef CH_EVENTMANAGER_H
#define CH_EVENTMANAGER_H

#include <ch/manager/CH_ChangeType.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

class CH_Collection;

/// Delivers each event at once: channel events (1-8) to the channel's
/// collection, group events (9-15) to the manager's root collection, a
/// scope change (16) to the collection passed as its data. Others drop.
class CH_EventHandler
{
public:
    virtual ~CH_EventHandler() = default;
    virtual void event(CH_CHANGE_TYPE type, void *data);
    /// Called as 'collection' is being destroyed: a handler that holds
    /// events must not reach it afterwards. Nothing to do for this one.
    virtual void forget(CH_Collection *collection);
    /// Called for a channel deleted while this handler's batch is being
    /// delivered (it is no longer current then): drop what is held for it.
    virtual void forgetChannel(void *channel);
    static CH_EventHandler *newHandler() { return new CH_EventHandler; }

protected:
    /// The collection a channel event goes to, or null.
    static CH_Collection *ownerOf(CH_CHANGE_TYPE type, void *data);
};

/// Holds channel-change events (types 3-8) back and delivers each
/// (channel, type) once when destroyed; the last scope change goes first.
/// Deletions, additions and group events go out at once.
class CH_EventHandlerHash : public CH_EventHandler
{
public:
    ~CH_EventHandlerHash() override;
    void event(CH_CHANGE_TYPE type, void *data) override;
    /// Drops the collection as scope-change target and every held event
    /// that would go to it.
    void forget(CH_Collection *collection) override;
    void forgetChannel(void *channel) override;
    static CH_EventHandler *newHandler() { return new CH_EventHandlerHash; }

private:
    // One open-addressing table for all held kinds: a channel's entry
    // carries one bit per kind it changed in. Entries are never removed
    // until the table grows, only emptied (no bits), so lookups stay simple
    // and the table may be emptied while the flush walks it. The entries of
    // one collection are also chained, so forgetting a collection costs
    // only its own entries.
    struct chHeld
    {
        void *data;
        CH_Collection *owner; // null once forgotten (and then unchained)
        unsigned types;
        std::uint32_t next; // slot + 1 of the owner's next entry; 0 ends
    };
    struct chOwner
    {
        CH_Collection *owner;
        std::uint32_t head; // slot + 1 of its first entry; 0: none
    };

    chHeld *find(void *data);
    void hold(void *data, CH_Collection *owner, unsigned bit, chHeld *held);
    void grow();
    chOwner *findOwner(CH_Collection *owner);
    void chain(std::size_t slot);
    void unchain(std::size_t slot);

    std::unique_ptr<chHeld[]> mySlots;
    std::size_t myMask = 0; // capacity - 1; capacity is a power of two or 0
    std::size_t myUsed = 0; // slots with a key, emptied ones included
    chHeld *myLast = nullptr; // the entry of the last held event
    std::unique_ptr<chOwner[]> myOwners; // same scheme, keyed by collection
    std::size_t myOwnerMask = 0;
    std::size_t myOwnerCount = 0;
    bool myScopeChangePending = false;
    void *myScopeChangeTarget = nullptr;
};

using CH_EventHandlerFactory = CH_EventHandler *(*)();

/// Routes events to the current handler: the default one (immediate
/// delivery) or, inside a batch, one made by the batch's factory. Events are
/// raised and handled on the thread that edits; nothing here is locked.
class CH_EventManager
{
public:
    CH_EventManager();
    virtual ~CH_EventManager();
    CH_EventManager(const CH_EventManager &) = delete;
    CH_EventManager &operator=(const CH_EventManager &) = delete;

    /// Enters batching when given a factory outside a batch; otherwise only
    /// counts nesting.
    void beginHandlingEvents(CH_EventHandlerFactory factory);
    /// The end matching the outermost begin flushes the batch.
    void endHandlingEvents();
    CH_EventHandler *getHandler() const { return myHandler; }
    int getNestingDepth() const { return myDepth; }

    /// Called at the start of a collection's destructor: the current handler,
    /// and any handler still delivering its batch, forget the collection.
    void collectionDestroyed(CH_Collection *collection);
    /// Tells the handlers still delivering a batch that a channel went.
    void channelDeleted(void *channel)
    {
        for (CH_EventHandler *flushing : myFlushing)
            flushing->forgetChannel(channel);
    }

private:
    CH_EventHandler *myDefault;
    CH_EventHandler *myHandler;
    int myDepth = 0;
    // Handlers whose batch is being delivered (more than one when a
    // setChanged runs a batch of its own).
    std::vector<CH_EventHandler *> myFlushing;
};

/// The process-wide event manager, created on first use, never destroyed.
CH_EventManager *CHgetEventManager();
/// Passes an event to the current handler.
void CHevent(CH_CHANGE_TYPE type, void *data);

/// Begins event handling on construction and ends it on destruction.
class CH_AutoEventHandler
{
public:
    explicit CH_AutoEventHandler(CH_EventHandlerFactory factory = CH_EventHandlerHash::newHandler)
    {
        CHgetEventManager()->beginHandlingEvents(factory);
    }
    ~CH_AutoEventHandler() { CHgetEventManager()->endHandlingEvents(); }
    CH_AutoEventHandler(const CH_AutoEventHandler &) = delete;
    CH_AutoEventHandler &operator=(const CH_AutoEventHandler &) = delete;
};

#endif
