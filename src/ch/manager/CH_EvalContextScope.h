#ifndef CH_EVALCONTEXTSCOPE_H
#define CH_EVALCONTEXTSCOPE_H

#include <ch/manager/CH_Manager.h>

/// Sets a thread's evaluation time (and collection, when one is given) for
/// the life of the object and restores both afterwards. The time comes back
/// through a float, as the evaluation time is set everywhere else.
class CH_EvalContextScope
{
public:
    CH_EvalContextScope(CH_Manager *manager, float time, CH_Collection *collection, int thread)
        : myManager(manager), myThread(thread)
    {
        if (!myManager)
            return;
        myTime = myManager->getEvaluateTime(thread);
        myCollection = myManager->getEvalCollection(thread);
        myManager->setEvaluateTime(time, thread);
        if (collection)
            myManager->setEvalCollection(collection, thread);
    }
    ~CH_EvalContextScope()
    {
        if (!myManager)
            return;
        myManager->setEvalCollection(myCollection, myThread);
        myManager->setEvaluateTime(static_cast<float>(myTime), myThread);
    }
    CH_EvalContextScope(const CH_EvalContextScope &) = delete;
    CH_EvalContextScope &operator=(const CH_EvalContextScope &) = delete;

private:
    CH_Manager *myManager;
    int myThread;
    double myTime = 0.0;
    CH_Collection *myCollection = nullptr;
};

#endif
