// Global parameters: named float or string values that a collection
// publishes and other collections read. Readers are recorded as dependents
// and told when a value they read changes.
#include "CH_Manager.h"

#include <ch/io/CH_Collection.h>

#include <algorithm>
#include <functional>

std::size_t CH_Manager::chGlobalParamKeyHash::operator()(const chGlobalParamKey &k) const
{
    return std::hash<std::string>()(k.first) ^ (std::hash<const void *>()(k.second) << 1);
}

CH_Manager::chGlobalParam *CH_Manager::findGlobalParam(const char *name, CH_Collection *owner) const
{
    if (myLastGlobalParam && myLastGlobalParam->owner == owner && myLastGlobalParam->name == name)
        return myLastGlobalParam;
    auto it = myGlobalParams.find(chGlobalParamKey(name, owner));
    if (it == myGlobalParams.end())
        return nullptr;
    myLastGlobalParam = it->second.get();
    return myLastGlobalParam;
}

CH_Manager::chGlobalParam *CH_Manager::createGlobalParam(const char *name, CH_Collection *owner)
{
    auto param = std::make_unique<chGlobalParam>();
    param->name = name;
    param->owner = owner;
    chGlobalParam *p = param.get();
    myGlobalParams[chGlobalParamKey(name, owner)] = std::move(param);
    myLastGlobalParam = p;
    return p;
}

CH_Manager::chGlobalParam *CH_Manager::lookupGlobalParam(const char *name,
                                                         CH_Collection *collection) const
{
    for (CH_Collection *c = collection; c; c = c->getParent())
        if (chGlobalParam *p = findGlobalParam(name, c))
            return p;
    return collection ? nullptr : findGlobalParam(name, nullptr);
}

namespace {

void notifyDependents(const std::vector<CH_Collection *> &dependents)
{
    for (CH_Collection *c : dependents)
        c->setChanged(CH_CHANNELS_MAJOR_CHANGE, nullptr);
}

} // namespace

template <typename Store>
int CH_Manager::setGlobalParam(const char *name, CH_Collection *owner, Store store)
{
    if (!name || !*name || !owner)
        return -1;
    std::vector<CH_Collection *> to_notify;
    int result = 0;
    {
        std::lock_guard<std::mutex> lock(myGlobalParamLock);
        myIsSettingGlobalParam = true;
        for (CH_Collection *c = owner; c; c = c->getParent())
        {
            chGlobalParam *p = findGlobalParam(name, c);
            if (!p)
                p = createGlobalParam(name, c);
            // 1 when the value changed, 0 when it already held it.
            if (store(*p))
            {
                result = 1;
                to_notify.insert(to_notify.end(), p->dependents.begin(), p->dependents.end());
            }
        }
        myIsSettingGlobalParam = false;
    }
    // Outside the lock: a dependent may read parameters when told.
    std::sort(to_notify.begin(), to_notify.end());
    to_notify.erase(std::unique(to_notify.begin(), to_notify.end()), to_notify.end());
    notifyDependents(to_notify);
    return result;
}

int CH_Manager::setGlobalFloatParam(const char *name, float value, CH_Collection *owner)
{
    return setGlobalParam(name, owner, [value](chGlobalParam &p) {
        if (p.hasFloat && p.fval == value)
            return false;
        p.fval = value;
        p.hasFloat = true;
        return true;
    });
}

int CH_Manager::setGlobalStringParam(const char *name, const char *value, CH_Collection *owner)
{
    return setGlobalParam(name, owner, [value](chGlobalParam &p) {
        if (p.hasString && p.sval == value)
            return false;
        p.sval = value;
        p.hasString = true;
        return true;
    });
}

namespace {

void addDependent(std::vector<CH_Collection *> &dependents, CH_Collection *c, bool &added)
{
    added = std::find(dependents.begin(), dependents.end(), c) == dependents.end();
    if (added)
        dependents.push_back(c);
}

} // namespace

template <typename Read>
void CH_Manager::readGlobalParam(const char *name, CH_Collection *collection, int thread,
                                 bool add_dependency, Read read)
{
    CH_Collection *dependent = add_dependency ? getEvalCollection(thread) : nullptr;
    bool added = false;
    {
        std::lock_guard<std::mutex> lock(myGlobalParamLock);
        name = name ? name : "";
        chGlobalParam *p = lookupGlobalParam(name, collection);
        bool created = !p;
        if (created)
            p = createGlobalParam(name, collection);
        read(*p, created);
        if (dependent)
            addDependent(p->dependents, dependent, added);
    }
    // Outside the lock: the collection may read parameters when told.
    if (added)
        dependent->addedParamDependency();
}

void CH_Manager::getGlobalParamF(const char *name, CH_Collection *collection, float &value,
                                 float default_value, int thread, bool add_dependency)
{
    readGlobalParam(name, collection, thread, add_dependency, [&](chGlobalParam &p, bool created) {
        if (created)
        {
            p.fval = default_value;
            p.hasFloat = true;
        }
        value = p.hasFloat ? p.fval : default_value;
    });
}

void CH_Manager::getGlobalParamS(const char *name, CH_Collection *collection, UT_String &value,
                                 const char *default_value, int thread, bool add_dependency)
{
    readGlobalParam(name, collection, thread, add_dependency, [&](chGlobalParam &p, bool created) {
        if (created)
        {
            p.sval = default_value;
            p.hasString = true;
        }
        value = p.hasString ? p.sval.c_str() : default_value;
    });
}

void CH_Manager::dirtyOrphanGlobalParamDependents(const char *name, CH_Collection *collection,
                                                  bool recurse, std::set<CH_Collection *> *done)
{
    std::vector<CH_Collection *> to_notify;
    {
        std::lock_guard<std::mutex> lock(myGlobalParamLock);
        for (CH_Collection *c = collection; c; c = recurse ? c->getParent() : nullptr)
            if (chGlobalParam *p = findGlobalParam(name ? name : "", c))
                for (CH_Collection *d : p->dependents)
                    if (!done || done->insert(d).second)
                        to_notify.push_back(d);
    }
    notifyDependents(to_notify);
}

void CH_Manager::removeParamDependency(CH_Collection *collection)
{
    std::lock_guard<std::mutex> lock(myGlobalParamLock);
    for (auto &entry : myGlobalParams)
    {
        auto &deps = entry.second->dependents;
        deps.erase(std::remove(deps.begin(), deps.end(), collection), deps.end());
    }
}

void CH_Manager::removeGlobalParamOwner(CH_Collection *collection)
{
    std::vector<CH_Collection *> to_notify;
    {
        std::lock_guard<std::mutex> lock(myGlobalParamLock);
        myLastGlobalParam = nullptr;
        for (auto it = myGlobalParams.begin(); it != myGlobalParams.end();)
        {
            auto &deps = it->second->dependents;
            deps.erase(std::remove(deps.begin(), deps.end(), collection), deps.end());
            if (it->second->owner != collection)
            {
                ++it;
                continue;
            }
            // The readers of an orphaned parameter must look again.
            to_notify.insert(to_notify.end(), deps.begin(), deps.end());
            it = myGlobalParams.erase(it);
        }
    }
    std::sort(to_notify.begin(), to_notify.end());
    to_notify.erase(std::unique(to_notify.begin(), to_notify.end()), to_notify.end());
    notifyDependents(to_notify);
}

void CH_Manager::dumpGlobalParams(std::ostream &os) const
{
    std::lock_guard<std::mutex> lock(myGlobalParamLock);
    for (const auto &entry : myGlobalParams)
    {
        const chGlobalParam &p = *entry.second;
        UT_String path;
        if (p.owner)
            p.owner->getFullPath(path);
        os << p.name << " (" << path << ")";
        if (p.hasFloat)
            os << " float " << p.fval;
        if (p.hasString)
            os << " string \"" << p.sval << "\"";
        os << " dependents " << p.dependents.size() << "\n";
    }
}
