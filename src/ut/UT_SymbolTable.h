#ifndef UT_SYMBOLTABLE_H
#define UT_SYMBOLTABLE_H

#include <cstring>
#include <memory>
#include <string_view>
#include <unordered_map>
#include <utility>

/// A case-sensitive table from names to pointers (T is the pointer type).
/// It does not own what it points to. Iteration order is unspecified; code
/// that needs an order keeps its own list.
///
/// The table owns a copy of every name and keys its hash map by a view of
/// that copy, so a lookup by `const char *` hashes the caller's text in
/// place: no string is built per lookup. A null name means "".
template <typename T = void *>
class UT_SymbolTable
{
    struct Entry
    {
        T value;
        std::unique_ptr<char[]> name; // the key's text; never moves while the entry lives
    };
    using Map = std::unordered_map<std::string_view, Entry>;

public:
    /// Adds or replaces the entry of 'name'.
    void addSymbol(const char *name, T value)
    {
        std::string_view key = view(name);
        auto it = myMap.find(key);
        if (it != myMap.end()) {
            it->second.value = value;
            return;
        }
        std::unique_ptr<char[]> copy(new char[key.size() + 1]);
        std::memcpy(copy.get(), key.data(), key.size());
        copy[key.size()] = '\0';
        std::string_view owned(copy.get(), key.size());
        myMap.emplace(owned, Entry{value, std::move(copy)});
    }
    /// The entry of 'name', or null when there is none.
    T findSymbol(const char *name) const { return findSymbol(view(name)); }
    T findSymbol(std::string_view name) const
    {
        auto it = myMap.find(name);
        return it == myMap.end() ? T() : it->second.value;
    }
    bool contains(const char *name) const { return myMap.count(view(name)) != 0; }
    /// Removes the entry of 'name'; false when there was none.
    bool deleteSymbol(const char *name) { return myMap.erase(view(name)) != 0; }
    /// Moves an entry to a new name; false when the old name is absent or
    /// the new one taken.
    bool renameSymbol(const char *from, const char *to)
    {
        auto it = myMap.find(view(from));
        if (it == myMap.end() || contains(to))
            return false;
        T value = it->second.value;
        myMap.erase(it);
        addSymbol(to, value);
        return true;
    }

    int entries() const { return static_cast<int>(myMap.size()); }
    void clear() { myMap.clear(); }
    /// Room for n entries without rehashing.
    void reserve(int n) { myMap.reserve(n > 0 ? static_cast<std::size_t>(n) : 0u); }

    /// Calls f(name, value) for every entry.
    template <typename F>
    void traverse(F &&f) const
    {
        for (const auto &entry : myMap)
            f(entry.second.name.get(), entry.second.value);
    }

private:
    static std::string_view view(const char *name) { return name ? std::string_view(name) : std::string_view(); }

    Map myMap;
};

#endif
