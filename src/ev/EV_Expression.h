#ifndef EV_EXPRESSION_H
#define EV_EXPRESSION_H

#include <ev/EV_ExprFlags.h>

#include <atomic>
#include <memory>
#include <string>

class evProgram;


/// One expression: its flag word (first, so hosts may treat the object's
/// first word as the flags), its text and its compiled form.
///
/// The flag word is written by every evaluating thread: ORs are relaxed
/// atomics, done only when a bit is missing, so evaluation on many cores
/// does not keep stealing the cache line. Changing the text is an edit and
/// must not overlap evaluation of the same expression.
struct EV_EXPRESSION
{
    std::atomic<unsigned> flags{0};

    EV_EXPRESSION();
    ~EV_EXPRESSION();
    EV_EXPRESSION(const EV_EXPRESSION &) = delete;
    EV_EXPRESSION &operator=(const EV_EXPRESSION &) = delete;

    unsigned getFlags() const { return flags.load(std::memory_order_relaxed); }
    void setFlags(unsigned f) { flags.store(f, std::memory_order_relaxed); }
    void orFlags(unsigned f)
    {
        if ((flags.load(std::memory_order_relaxed) & f) != f)
            flags.fetch_or(f, std::memory_order_relaxed);
    }

    const char *getText() const { return myText.c_str(); }
    bool hasText() const { return myHasText; }
    /// True when the text compiled without error.
    bool isCompiled() const;
    /// The compile error number of the text (0 when it compiled).
    int getCompileError() const;
    /// Where the text's first compile error was found: the byte offset of
    /// the token in the text and the token as written ("" at the end of
    /// the text). -1 and "" when the text compiled.
    int getCompileErrorOffset() const;
    const char *getCompileErrorToken() const;

    /// The key-usage bits (EV_FLAG_KEY_USAGE) of the functions the text
    /// calls and the variables it names, as registered when it was compiled.
    /// Unlike the flag word, known without running the expression.
    unsigned getCompiledUsage() const;

    /// The engine keeps no result cache, so there is nothing to dirty.
    void dirtyExpr() {}

    // Engine internals.
    std::string myText;
    bool myHasText = false;
    std::unique_ptr<evProgram> myProgram;
};

#endif
