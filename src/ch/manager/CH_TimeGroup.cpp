#include <ch/manager/CH_TimeGroup.h>

#include <ch/manager/CH_Manager.h>

int CH_TimeGroup::getIndex() const
{
    CH_Manager *mgr = CH_Manager::getContext();
    return mgr ? mgr->getTimeGroupIdx(myName) : -1;
}
