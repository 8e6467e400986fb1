#ifndef UT_STRINGARRAY_H
#define UT_STRINGARRAY_H

#include "UT_Array.h"
#include "UT_String.h"

/// An array of owned strings.
class UT_StringArray : public UT_Array<UT_String>
{
public:
    using UT_Array<UT_String>::UT_Array;

    int append(const char *text) { return UT_Array<UT_String>::append(UT_String(text)); }
    int append(const UT_String &text) { return UT_Array<UT_String>::append(text); }
    /// Index of the first entry equal to text, or -1.
    int find(const char *text) const { return UT_Array<UT_String>::find(UT_String(text)); }
    /// Sorts by byte order of the texts.
    void sort() { stableSort([](const UT_String &a, const UT_String &b) { return a < b; }); }
};

#endif
