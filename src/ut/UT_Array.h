#ifndef UT_ARRAY_H
#define UT_ARRAY_H

#include <algorithm>
#include <cstddef>
#include <functional>
#include <initializer_list>
#include <utility>
#include <vector>

/// A thin array over std::vector with the names the library uses.
///
/// Indices are int, as everywhere in the library's interfaces. Out-of-range
/// indices are the caller's error for operator() (checked only by the
/// standard library's debug mode); the editing calls (insert, remove, move)
/// check their indices and do nothing with a bad one.
template <typename T>
class UT_Array
{
public:
    using value_type = T;
    using iterator = typename std::vector<T>::iterator;
    using const_iterator = typename std::vector<T>::const_iterator;

    UT_Array() = default;
    UT_Array(std::initializer_list<T> init) : myData(init) {}
    explicit UT_Array(std::vector<T> data) : myData(std::move(data)) {}

    int entries() const { return static_cast<int>(myData.size()); }
    int size() const { return entries(); }
    bool isEmpty() const { return myData.empty(); }
    /// Grows (value-initialised) or shrinks to n entries.
    void entries(int n) { myData.resize(n < 0 ? 0 : static_cast<std::size_t>(n)); }
    void setSize(int n) { entries(n); }
    void truncate(int n) { if (n >= 0 && n < entries()) myData.resize(static_cast<std::size_t>(n)); }
    void clear() { myData.clear(); }
    void reserve(int n) { if (n > 0) myData.reserve(static_cast<std::size_t>(n)); }

    T &operator()(int i) { return myData[static_cast<std::size_t>(i)]; }
    const T &operator()(int i) const { return myData[static_cast<std::size_t>(i)]; }
    T &operator[](int i) { return myData[static_cast<std::size_t>(i)]; }
    const T &operator[](int i) const { return myData[static_cast<std::size_t>(i)]; }
    T &last() { return myData.back(); }
    const T &last() const { return myData.back(); }
    T *data() { return myData.data(); }
    const T *data() const { return myData.data(); }

    /// Appends; returns the new entry's index.
    int append(const T &item) { myData.push_back(item); return entries() - 1; }
    int append(T &&item) { myData.push_back(std::move(item)); return entries() - 1; }
    void concat(const UT_Array &other) { myData.insert(myData.end(), other.myData.begin(), other.myData.end()); }

    /// Inserts before index i (i == entries() appends); returns i, or -1
    /// when i is out of range.
    int insert(const T &item, int i)
    {
        if (i < 0 || i > entries())
            return -1;
        myData.insert(myData.begin() + i, item);
        return i;
    }
    /// Removes entry i; returns i, or -1 when out of range.
    int removeIndex(int i)
    {
        if (i < 0 || i >= entries())
            return -1;
        myData.erase(myData.begin() + i);
        return i;
    }
    /// Removes the first entry equal to item; returns its index or -1.
    int remove(const T &item)
    {
        int i = find(item);
        return i < 0 ? -1 : removeIndex(i);
    }
    /// Moves entry 'from' so that it ends up at index 'to', shifting the
    /// entries between; false when either index is out of range.
    bool move(int from, int to)
    {
        if (from < 0 || from >= entries() || to < 0 || to >= entries())
            return false;
        if (from < to)
            std::rotate(myData.begin() + from, myData.begin() + from + 1, myData.begin() + to + 1);
        else if (from > to)
            std::rotate(myData.begin() + to, myData.begin() + from, myData.begin() + from + 1);
        return true;
    }

    /// Index of the first entry equal to item, at or after 'start'; -1 if none.
    int find(const T &item, int start = 0) const
    {
        for (int i = std::max(start, 0); i < entries(); ++i)
            if (myData[static_cast<std::size_t>(i)] == item)
                return i;
        return -1;
    }

    /// Sorts with a strict-weak-order predicate. Stable, so equal entries
    /// keep their order on every platform.
    template <typename Less>
    void stableSort(Less less) { std::stable_sort(myData.begin(), myData.end(), less); }
    /// Sorts with a qsort-style comparison (negative, zero, positive).
    void sort(int (*compare)(const T *, const T *))
    {
        stableSort([compare](const T &a, const T &b) { return compare(&a, &b) < 0; });
    }

    /// Index of item in an array sorted by 'less', or -1.
    template <typename Less = std::less<T>>
    int sortedFind(const T &item, Less less = Less()) const
    {
        auto it = std::lower_bound(myData.begin(), myData.end(), item, less);
        if (it == myData.end() || less(item, *it))
            return -1;
        return static_cast<int>(it - myData.begin());
    }
    /// Inserts item into an array sorted by 'less' unless an equal entry is
    /// there already; returns the index of the entry (new or existing).
    template <typename Less = std::less<T>>
    int uniqueSortedInsert(const T &item, Less less = Less())
    {
        auto it = std::lower_bound(myData.begin(), myData.end(), item, less);
        if (it == myData.end() || less(item, *it))
            it = myData.insert(it, item);
        return static_cast<int>(it - myData.begin());
    }

    void reverse() { std::reverse(myData.begin(), myData.end()); }

    iterator begin() { return myData.begin(); }
    iterator end() { return myData.end(); }
    const_iterator begin() const { return myData.begin(); }
    const_iterator end() const { return myData.end(); }

    bool operator==(const UT_Array &o) const { return myData == o.myData; }
    bool operator!=(const UT_Array &o) const { return myData != o.myData; }

    std::vector<T> &toStdVector() { return myData; }
    const std::vector<T> &toStdVector() const { return myData; }

private:
    std::vector<T> myData;
};

#endif
