#ifndef CH_EXPRESSION_H
#define CH_EXPRESSION_H

#include <ch/expr/CH_ExprLanguage.h>

#include <ut/UT_String.h>

#include <cstddef>
#include <memory>

struct EV_EXPRESSION;
class EV_FUNCTION;
class chPythonCode;

/// The expression of a segment: its text, its language and its compiled
/// form, evaluated to a float or a string.
///
/// Orvish text is compiled into an engine expression (EV_EXPRESSION). Its
/// flag word records what the expression used while it ran:
///
///   EV_FLAG_TIMEDEP          depends on time
///   EV_FLAG_INVALUE          uses the in value
///   EV_FLAG_OUTVALUE         uses the out value
///   EV_FLAG_SLOPES           uses slopes
///   EV_FLAG_ACCELS           uses accelerations
///   EV_FLAG_KNOTS            uses knots
///   EV_FLAG_HARDWIRED        hard-wired
///   EV_FLAG_DATA_DEPENDENT   reads data other than time and keys (set by
///                            the functions that do, through addExprFlags)
///   EV_FLAG_EVALUATED        evaluated since the text last changed
///                            (modified() is its negation)
///
/// (ev/EV_ExprFlags.h gives their bit numbers.)
///
/// Functions called by an expression add bits while it runs through the
/// per-thread flags (addExprFlags, setTimeDependency); evaluation moves
/// them into the flag word and restores the thread's flags afterwards, so a
/// nested evaluation never passes its bits to the one that called it.
///
/// Copies are independent values: a copy keeps the text, language, flag
/// word and reference path it was made with, whatever happens to the
/// original later (and the other way round). Segments are copied and then
/// edited (splitting a key), and an edit must never reach the source. The
/// compiled program is shared copy-on-write: a copy costs no compile, and
/// the first edit of a shared expression (text, language, flag word, local
/// variable binding) gives the edited one a program of its own, so nothing
/// ever writes into a program another expression holds. What evaluation
/// gathers (the usage bits and the evaluated bit) is ORed into the shared
/// word, as in the pool below: it describes the one text they all have.
/// Assignment takes the source's text and language and recompiles.
/// Copies of a pooled expression (see the pooled constructor) are pooled too.
///
/// Python: there is no interpreter bridge yet. A Python text is kept
/// unchanged (getExpression returns it, switching back to Orvish recompiles
/// it) but evaluates to 0 or the empty string with the error "Python
/// expressions are not available".
///
/// Evaluation may run on several threads at once, of one expression or of
/// copies; editing an expression must not overlap evaluation of that same
/// expression, but may overlap evaluation of its copies.
class CH_Expression
{
public:
    CH_Expression(const char *text, CH_ExprLanguage language);
    /// Tag of the pooled constructor.
    enum PooledTag
    {
        Pooled
    };
    /// An Orvish text compiled once for every pooled expression of the same
    /// text: channels repeat a handful of texts ("bezier()", "linear()")
    /// over thousands of segments, and one shared program stays in cache.
    /// A pooled expression never edits the shared engine expression:
    /// changing its text (or anything else it compiled) gives it its own.
    /// The flag word is shared too: a text that read time in one place
    /// reports time dependence everywhere it is pooled (never the reverse),
    /// which at worst makes a host re-evaluate a constant.
    CH_Expression(const char *text, CH_ExprLanguage language, PooledTag);
    /// The number of distinct texts pooled expressions hold now; a text
    /// leaves the pool when its last expression goes.
    static std::size_t getPooledTextCount();
    CH_Expression(const CH_Expression &source);
    CH_Expression(CH_Expression &&source) noexcept;
    /// Takes the source's text and language and recompiles; a source with
    /// an empty text leaves this expression unchanged.
    CH_Expression &operator=(const CH_Expression &source);
    ~CH_Expression();

    /// Sets the text and language and recompiles; a null text is ignored.
    void setExpression(const char *text, CH_ExprLanguage language);
    /// Recompiles the current text in another language (same one: no-op).
    void setLanguage(CH_ExprLanguage language);
    CH_ExprLanguage getLanguage() const { return myLanguage; }

    /// The text, never null.
    const char *getExpression() const;
    operator const char *() const { return getExpression(); }

    /// Thread 0 means the calling thread. Errors are not thrown: they go to
    /// the engine's per-thread error state and the result is 0 or "".
    float evaluate(int thread) const;
    void evaluateString(UT_String &result, int thread) const;

    bool isCompiled() const;
    bool isHardwired() const;
    /// Set by functions that read data other than time and keys.
    bool isDataDependent() const;
    /// True when the text changed and the expression has not run since.
    bool modified() const;
    unsigned getExpressionFlag() const;
    /// ORs bits into the flag word, as evaluation does (seen by copies that
    /// still share the program, which have the same text).
    void orExpressionFlag(unsigned bits) const;
    void setExpressionFlag(unsigned flags);

    // What the expression reads. The engine only learns that by running it,
    // so a modified expression is evaluated once (calling thread) first.
    bool usesInValue() const;
    bool usesOutValue() const;
    bool usesValues() const;
    bool usesSlopes() const;
    bool usesAccels() const;
    bool usesKnots() const;

    /// The key numbers the text reads (EV_FLAG_KEY_USAGE bits), from the
    /// functions and variables it names, known since it was compiled; no
    /// evaluation. 0 for Python.
    unsigned getCompiledUsage() const;

    /// Orvish only: the engine's cached result is stale.
    void dirtyExprCache();
    /// Variables are looked up by name again at each evaluation.
    void unresolveLocalVars(int thread);

    // Operator-reference tracking is not wired to the engine yet: both do
    // nothing and return 0.
    int buildOpDependencies(void *ref, int thread);
    int changeOpRef(const char *new_fullpath, const char *old_fullpath,
                    const char *old_cwd, const char *chan_name,
                    const char *old_chan_name, int thread);

    /// Searches the text (UT_String::findString).
    bool findString(const char *text, bool whole_word, bool case_sensitive) const;
    /// Replaces 'from' by 'to' in the text and recompiles when anything
    /// changed; returns the number of replacements.
    int changeString(const char *from, const char *to, bool whole_word, int thread);

    /// The engine's per-call-site data of a function in this expression;
    /// null for Python. 'source' is left as it is: the engine keeps no
    /// instance data yet.
    void *getSingleFunctionInstanceData(EV_FUNCTION *func, int thread, UT_String &source) const;

    /// The path of the parameter or channel owning the expression, used to
    /// resolve relative references. Every change of the text clears it.
    void setReferencePath(const char *path) { myReferencePath = path; }
    const UT_String &getReferencePath() const { return myReferencePath; }

    /// The calling thread's flags, gathered while an expression runs.
    static int &exprFlags();
    /// ORs flags into a thread's flags (0: the calling thread).
    static void addExprFlags(int flags, int thread);
    /// Marks the running expression as time-dependent (calling thread).
    static void setTimeDependency();

private:
    // The one place where text is compiled.
    void changeExpr(const char *text, int thread);
    /// Whether another expression (a copy, or the pool) may hold myExpr.
    bool isShared() const;
    /// Gives this expression an engine expression of its own, compiled from
    /// the current text with the same flag word, before anything edits it.
    void makeUnique();
    bool usesFlag(unsigned mask) const;

    // What evaluation reads comes first (a segment keeps it in its first
    // cache line).
    CH_ExprLanguage myLanguage;
    std::shared_ptr<EV_EXPRESSION> myExpr;
    std::shared_ptr<chPythonCode> myPythonCode; // set exactly for Python text
    UT_String myReferencePath;
    bool myPooled = false; ///< myExpr is the pool's, shared by text
};

#endif
