#ifndef CH_EVENTMANAGER_H
#define CH_EVENTMANAGER_H

#include <ch/manager/CH_ChangeType.h>

#include <unordered_map>

class CH_Collection;

/// Delivers each event at once: channel events (1-8) to the channel's
/// collection, group events (9-15) to the manager's root collection, a
/// scope change (16) to the collection passed as its data. Others drop.
class CH_EventHandler
{
public:
    virtual ~CH_EventHandler() = default;
    virtual void event(CH_CHANGE_TYPE type, void *data);
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
    static CH_EventHandler *newHandler() { return new CH_EventHandlerHash; }

private:
    std::unordered_map<void *, CH_Collection *> myTables[CH_NUM_CHANGE_TYPES];
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

private:
    CH_EventHandler *myDefault;
    CH_EventHandler *myHandler;
    int myDepth = 0;
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
