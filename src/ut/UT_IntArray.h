#ifndef UT_INTARRAY_H
#define UT_INTARRAY_H

#include "UT_Array.h"

#include <algorithm>
#include <functional>
#include <vector>

class UT_IntArray : public UT_Array<int>
{
public:
    using UT_Array<int>::UT_Array;

    /// Merges other into this array, both sorted ascending (or descending);
    /// the result is sorted the same way. Without keep_duplicates every
    /// value appears once in the result.
    void merge(const UT_IntArray &other, bool ascending, bool keep_duplicates)
    {
        std::vector<int> out(toStdVector().size() + other.toStdVector().size());
        const std::vector<int> &a = toStdVector(), &b = other.toStdVector();
        if (ascending)
            std::merge(a.begin(), a.end(), b.begin(), b.end(), out.begin(), std::less<int>());
        else
            std::merge(a.begin(), a.end(), b.begin(), b.end(), out.begin(), std::greater<int>());
        if (!keep_duplicates)
            out.erase(std::unique(out.begin(), out.end()), out.end());
        toStdVector().swap(out);
    }
};

#endif
