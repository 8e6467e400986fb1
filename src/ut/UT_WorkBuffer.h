#ifndef UT_WORKBUFFER_H
#define UT_WORKBUFFER_H

#include <cstddef>
#include <string>

class UT_String;

/// A growable scratch buffer for building text piece by piece.
///
/// The text is always NUL-terminated, so buffer() can be handed to C string
/// functions at any time. Building never truncates: the buffer grows as
/// needed.
class UT_WorkBuffer
{
public:
    UT_WorkBuffer() = default;
    explicit UT_WorkBuffer(const char *text) { strcpy(text); }

    const char *buffer() const { return myText.c_str(); }
    const char *c_str() const { return myText.c_str(); }
    std::size_t length() const { return myText.size(); }
    bool isEmpty() const { return myText.empty(); }
    const std::string &toStdString() const { return myText; }

    void clear() { myText.clear(); }
    /// Replaces the contents; a null text empties the buffer.
    void strcpy(const char *text) { myText.assign(text ? text : ""); }
    void strcpy(const std::string &text) { myText = text; }

    void append(char c) { myText.push_back(c); }
    /// Appends a text; a null text appends nothing.
    void append(const char *text) { if (text) myText.append(text); }
    void append(const char *text, std::size_t n) { if (text) myText.append(text, n); }
    void append(const std::string &text) { myText.append(text); }
    /// Appends n copies of c.
    void append(std::size_t n, char c) { myText.append(n, c); }

    /// Replaces the contents with printf-style formatted text; returns the
    /// new length.
    int sprintf(const char *format, ...)
#if defined(__GNUC__)
        __attribute__((format(printf, 2, 3)))
#endif
        ;
    /// Appends printf-style formatted text; returns the appended length.
    int appendSprintf(const char *format, ...)
#if defined(__GNUC__)
        __attribute__((format(printf, 2, 3)))
#endif
        ;

    /// Removes the last n characters (all of them when n exceeds the length).
    void backup(std::size_t n) { myText.resize(n >= myText.size() ? 0 : myText.size() - n); }

    /// Copies the text into a string.
    void copyIntoString(UT_String &out) const;

    char operator[](std::size_t i) const { return myText[i]; }
    bool operator==(const char *text) const { return myText == (text ? text : ""); }
    bool operator!=(const char *text) const { return !(*this == text); }

private:
    std::string myText;
};

#endif
