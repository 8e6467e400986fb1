#include "CH_Expression.h"

#include <ev/EV_Engine.h>
#include <ev/EV_ExprFlags.h>
#include <ut/UT_ScopeExit.h>
#include <ut/UT_ThreadSlots.h>

#include <atomic>
#include <mutex>
#include <string>
#include <unordered_map>

namespace
{

const char *const thePythonUnavailable = "Python expressions are not available";

// Never destroyed: threads may still be evaluating while statics go away.
UT_ThreadSlots<int> &chExprFlags()
{
    // Built on first use (safe from static constructors), never destroyed.
    static UT_ThreadSlots<int> &flags = *new UT_ThreadSlots<int>;
    return flags;
}

// Saves a thread's flags and zeroes them for one evaluation; the guard
// restores the saved flags, so an enclosing evaluation does not inherit
// what this one gathered (read from the slot before the guard ends).
[[nodiscard]] auto chScopeFlags(int &slot)
{
    const int saved = slot;
    slot = 0;
    return UT_ScopeExit([&slot, saved] { slot = saved; });
}
} // namespace

/// Stands in for compiled Python code until there is an interpreter bridge:
/// it keeps the source so that no text is lost.
class chPythonCode
{
public:
    explicit chPythonCode(const char *source) : mySource(source) {}
    const char *getSource() const { return mySource.c_str(); }

private:
    std::string mySource;
};

CH_Expression::CH_Expression(const char *text, CH_ExprLanguage language)
    : myLanguage(language), myExpr(ev_AllocExpr(), ev_FreeExpr)
{
    changeExpr(text, 0);
}

namespace {

// Compiled Orvish texts shared by pooled expressions, held weakly. The last
// holder of a program takes its text out of the table as the program goes,
// so the table holds only live texts and each addition costs O(1) (no
// rescans). The lock is taken when segments are made and destroyed, never
// during evaluation.
class chExpressionPool
{
public:
    std::shared_ptr<EV_EXPRESSION> get(const char *text)
    {
        {
            std::lock_guard<std::mutex> lock(myLock);
            auto it = myTexts.find(text);
            if (it != myTexts.end())
                if (std::shared_ptr<EV_EXPRESSION> live = it->second.expr.lock())
                    return live;
        }
        // Compiled outside the lock: compiling may expand and evaluate texts.
        std::shared_ptr<EV_EXPRESSION> fresh(ev_AllocExpr(), chRelease{this});
        ev_ChangeExpr(fresh.get(), text, 0);
        std::lock_guard<std::mutex> lock(myLock);
        chEntry &slot = myTexts[text];
        if (std::shared_ptr<EV_EXPRESSION> live = slot.expr.lock())
            return live; // another thread compiled it meanwhile
        slot.expr = fresh;
        slot.raw = fresh.get();
        return fresh;
    }

    std::size_t size()
    {
        std::lock_guard<std::mutex> lock(myLock);
        return myTexts.size();
    }

private:
    struct chEntry
    {
        std::weak_ptr<EV_EXPRESSION> expr;
        const EV_EXPRESSION *raw = nullptr; ///< which program the entry is for
    };
    struct chRelease
    {
        chExpressionPool *pool;
        void operator()(EV_EXPRESSION *expr) const { pool->release(expr); }
    };

    void release(EV_EXPRESSION *expr)
    {
        {
            // A pooled program is never edited, so its text is its key. The
            // entry may already hold a newer program of the same text (made
            // after this one expired): that one stays.
            std::lock_guard<std::mutex> lock(myLock);
            auto it = myTexts.find(expr->getText());
            if (it != myTexts.end() && it->second.raw == expr)
                myTexts.erase(it);
        }
        ev_FreeExpr(expr);
    }

    std::mutex myLock;
    std::unordered_map<std::string, chEntry> myTexts;
};

chExpressionPool &chPool()
{
    static chExpressionPool &pool = *new chExpressionPool; // outlives every segment
    return pool;
}

} // namespace

std::size_t CH_Expression::getPooledTextCount()
{
    return chPool().size();
}

CH_Expression::CH_Expression(const char *text, CH_ExprLanguage language, PooledTag)
    : myLanguage(language)
{
    if (language == CH_PYTHON || !text)
    {
        myExpr.reset(ev_AllocExpr(), ev_FreeExpr);
        changeExpr(text, 0);
        return;
    }
    myExpr = chPool().get(text);
    myPooled = true;
}

bool CH_Expression::isShared() const
{
    // A pooled program can gain holders at any time (the pool hands it out);
    // any other can only be copied from one of its holders, so a count of
    // one means nobody else sees it. use_count reads the count relaxed: the
    // fence orders our writes after the last reads of a copy that another
    // thread let go of.
    if (myPooled || myExpr.use_count() > 1)
        return true;
    std::atomic_thread_fence(std::memory_order_acquire);
    return false;
}

void CH_Expression::makeUnique()
{
    if (!isShared())
        return;
    std::shared_ptr<EV_EXPRESSION> own(ev_AllocExpr(), ev_FreeExpr);
    if (myLanguage != CH_PYTHON)
        ev_ChangeExpr(own.get(), myExpr->getText(), 0);
    own->setFlags(myExpr->getFlags()); // same text: what it gathered still holds
    myExpr = std::move(own);
    myPooled = false;
}

CH_Expression::CH_Expression(const CH_Expression &source) = default;
CH_Expression::CH_Expression(CH_Expression &&source) noexcept = default;

CH_Expression::~CH_Expression() = default;

CH_Expression &CH_Expression::operator=(const CH_Expression &source)
{
    // Copied first: the text may live in an engine expression we share with
    // the source, which compiling overwrites.
    std::string text = source.getExpression();
    if (text.empty())
        return *this;
    myLanguage = source.myLanguage;
    changeExpr(text.c_str(), 0);
    return *this;
}

void CH_Expression::changeExpr(const char *text, int thread)
{
    if (!text)
        text = "";
    myReferencePath.clear();
    myPythonCode.reset();
    if (isShared()) {
        // Compile into an engine expression of our own: copies and the pool
        // keep the program they have.
        myExpr.reset(ev_AllocExpr(), ev_FreeExpr);
        myPooled = false;
    }
    if (myLanguage != CH_PYTHON) {
        ev_ChangeExpr(myExpr.get(), text, thread);
        return;
    }
    // Without an interpreter there is nothing to check the syntax against.
    myPythonCode = std::make_shared<chPythonCode>(text);
    myExpr->setFlags(0);
}

void CH_Expression::setExpression(const char *text, CH_ExprLanguage language)
{
    if (!text)
        return;
    std::string copy = text; // may point into our own engine expression
    myLanguage = language;
    changeExpr(copy.c_str(), 0);
}

void CH_Expression::setLanguage(CH_ExprLanguage language)
{
    if (language == myLanguage)
        return;
    std::string text = getExpression();
    myLanguage = language;
    changeExpr(text.c_str(), 0);
}

const char *CH_Expression::getExpression() const
{
    return myPythonCode ? myPythonCode->getSource() : myExpr->getText();
}

float CH_Expression::evaluate(int thread) const
{
    int &gathered = chExprFlags().get(thread); // slots never move
    auto scope = chScopeFlags(gathered);
    float result = 0.0f;
    if (myLanguage != CH_PYTHON) {
        ev_EvaluateFloat(myExpr.get(), &result, thread);
        myExpr->orFlags(static_cast<unsigned>(gathered));
    } else {
        myExpr->setFlags(myExpr->getFlags() & EV_FLAG_PYTHON_KEEP);
        ev_SetCustomErrorMessage(thePythonUnavailable, thread);
        myExpr->orFlags(EV_FLAG_EVALUATED | static_cast<unsigned>(gathered));
    }
    return result;
}

void CH_Expression::evaluateString(UT_String &result, int thread) const
{
    int &gathered = chExprFlags().get(thread);
    auto scope = chScopeFlags(gathered);
    if (myLanguage != CH_PYTHON) {
        ev_EvaluateString(myExpr.get(), result, thread);
        myExpr->orFlags(static_cast<unsigned>(gathered));
    } else {
        myExpr->setFlags(myExpr->getFlags() & EV_FLAG_PYTHON_KEEP);
        result.clear();
        ev_SetCustomErrorMessage(thePythonUnavailable, thread);
        myExpr->orFlags(EV_FLAG_EVALUATED | static_cast<unsigned>(gathered));
    }
}

bool CH_Expression::isCompiled() const
{
    return myPythonCode || myExpr->isCompiled();
}

bool CH_Expression::isHardwired() const
{
    return (getExpressionFlag() & EV_FLAG_HARDWIRED) != 0;
}

bool CH_Expression::isDataDependent() const
{
    return (getExpressionFlag() & EV_FLAG_DATA_DEPENDENT) != 0;
}

bool CH_Expression::modified() const
{
    return (getExpressionFlag() & EV_FLAG_EVALUATED) == 0;
}

unsigned CH_Expression::getExpressionFlag() const
{
    return myExpr->getFlags();
}

void CH_Expression::orExpressionFlag(unsigned bits) const
{
    myExpr->orFlags(bits);
}

void CH_Expression::setExpressionFlag(unsigned flags)
{
    makeUnique();
    myExpr->setFlags(flags);
}

bool CH_Expression::usesFlag(unsigned mask) const
{
    if (modified())
        evaluate(0);
    return (getExpressionFlag() & mask) != 0;
}

bool CH_Expression::usesInValue() const { return usesFlag(EV_FLAG_INVALUE); }
bool CH_Expression::usesOutValue() const { return usesFlag(EV_FLAG_OUTVALUE); }
bool CH_Expression::usesValues() const { return usesFlag(EV_FLAG_INVALUE | EV_FLAG_OUTVALUE); }
bool CH_Expression::usesSlopes() const { return usesFlag(EV_FLAG_SLOPES); }
bool CH_Expression::usesAccels() const { return usesFlag(EV_FLAG_ACCELS); }
bool CH_Expression::usesKnots() const { return usesFlag(EV_FLAG_KNOTS); }

unsigned CH_Expression::getCompiledUsage() const
{
    return myLanguage == CH_PYTHON ? 0u : myExpr->getCompiledUsage();
}

void CH_Expression::dirtyExprCache()
{
    if (myLanguage != CH_PYTHON)
        myExpr->dirtyExpr();
}

void CH_Expression::unresolveLocalVars(int thread)
{
    makeUnique();
    ev_UnresolveVars(myExpr.get(), thread);
}

int CH_Expression::buildOpDependencies(void *, int)
{
    return 0;
}

int CH_Expression::changeOpRef(const char *, const char *, const char *, const char *, const char *, int)
{
    return 0;
}

bool CH_Expression::findString(const char *text, bool whole_word, bool case_sensitive) const
{
    return UT_String(getExpression()).findString(text, whole_word, case_sensitive);
}

int CH_Expression::changeString(const char *from, const char *to, bool whole_word, int thread)
{
    UT_String text(getExpression());
    int changes = text.changeString(from, to, whole_word);
    if (changes > 0)
        changeExpr(text.c_str(), thread);
    return changes;
}

void *CH_Expression::getSingleFunctionInstanceData(EV_FUNCTION *func, int thread, UT_String &) const
{
    if (myLanguage == CH_PYTHON)
        return nullptr;
    return ev_GetSingleFunctionInstanceData(myExpr.get(), func, thread);
}

int &CH_Expression::exprFlags()
{
    return chExprFlags().get(0);
}

void CH_Expression::addExprFlags(int flags, int thread)
{
    chExprFlags().get(thread) |= flags;
}

void CH_Expression::setTimeDependency()
{
    chExprFlags().get(0) |= static_cast<int>(EV_FLAG_TIMEDEP);
}
