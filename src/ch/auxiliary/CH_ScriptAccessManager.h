#ifndef CH_SCRIPTACCESSMANAGER_H
#define CH_SCRIPTACCESSMANAGER_H

/// A hook for hosts that keep their own per-thread evaluation state: the
/// channel core calls pushChEvalContext before evaluating script code and
/// popChEvalContext after. The base does nothing.
class CH_ScriptAccessManager
{
public:
    CH_ScriptAccessManager() = default;
    CH_ScriptAccessManager(const CH_ScriptAccessManager &) {}
    CH_ScriptAccessManager &operator=(const CH_ScriptAccessManager &) { return *this; }
    virtual ~CH_ScriptAccessManager() = default;

    virtual void pushChEvalContext() {}
    virtual void popChEvalContext() {}
};

#endif
