#ifndef UT_SYMBOLTABLE_H
#define UT_SYMBOLTABLE_H

#include <string>
#include <unordered_map>
#include <utility>

/// A case-sensitive table from names to pointers (T is the pointer type).
/// It does not own what it points to. Iteration order is unspecified; code
/// that needs an order keeps its own list.
template <typename T = void *>
class UT_SymbolTable
{
public:
    using Map = std::unordered_map<std::string, T>;
    using const_iterator = typename Map::const_iterator;

    /// Adds or replaces the entry of 'name'.
    void addSymbol(const char *name, T value) { myMap[name ? name : ""] = value; }
    /// The entry of 'name', or null when there is none.
    T findSymbol(const char *name) const
    {
        auto it = myMap.find(name ? name : "");
        return it == myMap.end() ? T() : it->second;
    }
    bool contains(const char *name) const { return myMap.count(name ? name : "") != 0; }
    /// Removes the entry of 'name'; false when there was none.
    bool deleteSymbol(const char *name) { return myMap.erase(name ? name : "") != 0; }
    /// Moves an entry to a new name; false when the old name is absent or
    /// the new one taken.
    bool renameSymbol(const char *from, const char *to)
    {
        auto it = myMap.find(from ? from : "");
        if (it == myMap.end() || contains(to))
            return false;
        T value = it->second;
        myMap.erase(it);
        myMap.emplace(to ? to : "", value);
        return true;
    }

    int entries() const { return static_cast<int>(myMap.size()); }
    void clear() { myMap.clear(); }

    /// Calls f(name, value) for every entry.
    template <typename F>
    void traverse(F &&f) const
    {
        for (const auto &entry : myMap)
            f(entry.first.c_str(), entry.second);
    }
    const_iterator begin() const { return myMap.begin(); }
    const_iterator end() const { return myMap.end(); }

private:
    Map myMap;
};

#endif
