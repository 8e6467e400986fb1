#ifndef UT_STRING_H
#define UT_STRING_H

#include <cstddef>
#include <cstring>
#include <ostream>
#include <string>

/// The library's string: always owns its text.
///
/// There is no "null" state: a string built from a null pointer is empty, and
/// buffer() / c_str() always return a valid NUL-terminated text. harden()
/// exists for callers written against shallow strings and does nothing.
class UT_String
{
public:
    UT_String() = default;
    UT_String(const char *text) : myText(text ? text : "") {}
    UT_String(const char *text, std::size_t n) : myText(text ? std::string(text, n) : std::string()) {}
    UT_String(const std::string &text) : myText(text) {}
    UT_String(std::string &&text) : myText(std::move(text)) {}

    UT_String &operator=(const char *text) { myText.assign(text ? text : ""); return *this; }
    UT_String &operator=(const std::string &text) { myText = text; return *this; }

    /// The text is always owned; nothing to do.
    void harden() {}
    /// Replaces the text with a copy of 'text'.
    void harden(const char *text) { *this = text; }

    const char *buffer() const { return myText.c_str(); }
    const char *c_str() const { return myText.c_str(); }
    operator const char *() const { return myText.c_str(); }
    const std::string &toStdString() const { return myText; }

    std::size_t length() const { return myText.size(); }
    /// True when the text is not empty.
    bool isstring() const { return !myText.empty(); }
    void clear() { myText.clear(); }

    char operator()(std::size_t i) const { return myText[i]; }
    char &operator()(std::size_t i) { return myText[i]; }

    UT_String &operator+=(const char *text) { if (text) myText.append(text); return *this; }
    UT_String &operator+=(const UT_String &text) { myText.append(text.myText); return *this; }
    UT_String &operator+=(char c) { myText.push_back(c); return *this; }

    bool operator==(const UT_String &o) const { return myText == o.myText; }
    bool operator!=(const UT_String &o) const { return myText != o.myText; }
    bool operator==(const char *o) const { return myText == (o ? o : ""); }
    bool operator!=(const char *o) const { return !(*this == o); }
    bool operator<(const UT_String &o) const { return myText < o.myText; }

    /// strcmp-style comparison; a null text compares as empty.
    int compare(const char *o) const { return std::strcmp(myText.c_str(), o ? o : ""); }

    /// Replaces the text with printf-style formatted text (never truncated).
    UT_String &sprintf(const char *format, ...)
#if defined(__GNUC__)
        __attribute__((format(printf, 2, 3)))
#endif
        ;

    void toLower();
    void toUpper();

    // ---- Wildcard matching -------------------------------------------------
    //
    // A pattern may use '*' (any run of characters, also empty), '?' (any one
    // character) and bracket classes "[abc]", "[a-z]", "[!a-z]" / "[^a-z]"
    // (negated). A ']' right after "[" or "[!" is a member, and so is a '-'
    // at either end of a class; a range written backwards ("[z-a]") is empty.
    // A '[' with no closing ']' matches itself. There is no escape character.
    // Case-insensitive matching folds ASCII letters only, also in classes: a
    // character belongs to a class when either of its cases does. A null
    // text or pattern never matches.

    /// True when the whole text matches the single pattern.
    bool match(const char *pattern, bool case_sensitive = true) const;
    static bool match(const char *text, const char *pattern, bool case_sensitive = true);

    /// True when the text matches any of several patterns separated by any
    /// of the characters in 'separators' (empty pieces are skipped, so an
    /// empty pattern, or one with nothing but separators, matches nothing).
    /// Null or empty separators make the whole pattern one piece.
    bool multiMatch(const char *pattern, bool case_sensitive = true,
                    const char *separators = ", ") const;
    static bool multiMatch(const char *text, const char *pattern,
                           bool case_sensitive = true, const char *separators = ", ");

    // ---- Search and replace ------------------------------------------------
    //
    // A whole word is bounded on both sides by the text's ends or by
    // characters that cannot be part of a name (anything but letters, digits
    // and '_').

    /// True when 'text' occurs in the string. An empty or null 'text' is
    /// never found.
    bool findString(const char *text, bool whole_word, bool case_sensitive) const;

    /// Replaces every non-overlapping occurrence of 'from' (case-sensitive,
    /// scanned left to right, replacements are not scanned again) by 'to';
    /// returns the number of replacements. An empty or null 'from' changes
    /// nothing.
    int changeString(const char *from, const char *to, bool whole_word);

    /// True for the characters that can be part of a name.
    static bool isNameChar(char c)
    {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
               (c >= '0' && c <= '9') || c == '_';
    }

private:
    std::string myText;
};

inline std::ostream &operator<<(std::ostream &os, const UT_String &s)
{
    return os << s.toStdString();
}

#endif
