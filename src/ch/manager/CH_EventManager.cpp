#include <ch/manager/CH_EventManager.h>

#include <ch/channel/CH_Channel.h>
#include <ch/io/CH_Collection.h>
#include <ch/manager/CH_Manager.h>

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

void CH_EventHandler::event(CH_CHANGE_TYPE type, void *data)
{
    CH_Collection *target = ownerOf(type, data);
    if (!target)
        return;
    target->setChanged(type, type == CH_SCOPE_CHANGED ? nullptr : data);
}

CH_EventHandlerHash::~CH_EventHandlerHash()
{
    if (myScopeChangePending && myScopeChangeTarget)
        static_cast<CH_Collection *>(myScopeChangeTarget)->setChanged(CH_SCOPE_CHANGED, nullptr);
    for (int type = CH_CHANNELS_MAJOR_CHANGE; type <= CH_PERMISSION_CHANGED; ++type)
        for (const auto &entry : myTables[type])
            entry.second->setChanged(static_cast<CH_CHANGE_TYPE>(type), entry.first);
}

void CH_EventHandlerHash::event(CH_CHANGE_TYPE type, void *data)
{
    if (type >= CH_CHANNELS_MAJOR_CHANGE && type <= CH_PERMISSION_CHANGED)
    {
        if (CH_Collection *owner = ownerOf(type, data))
            myTables[type].emplace(data, owner);
        return;
    }
    if (type == CH_CHANNELS_DELETED)
    {
        // A deleted channel must not be reported later.
        for (int t = CH_CHANNELS_MAJOR_CHANGE; t <= CH_PERMISSION_CHANGED; ++t)
            myTables[t].erase(data);
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
        delete batch; // delivers what it held
    }
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
