#include "UT_EnvControl.h"

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <mutex>
#include <unordered_map>

namespace {

struct utEnvEntry
{
    int number;
    const char *name;
};

const utEnvEntry theEntries[] = {
    {UT_EnvControl::DEFAULT_FPS, "CHANLIB_DEFAULT_FPS"},
    {UT_EnvControl::REVERSE_CHANNEL_SEARCH, "CHANLIB_REVERSE_CHANNEL_SEARCH"},
    {UT_EnvControl::CONSTANT_KEY_SETS_IN_VALUE, "CHANLIB_CONSTANT_KEY_SETS_IN_VALUE"},
};

struct utEnvCache
{
    std::mutex lock;
    std::unordered_map<int, int> values;
};

utEnvCache &utCache()
{
    static utEnvCache *cache = new utEnvCache;
    return *cache;
}

int utParse(const char *text)
{
    if (!text || !*text)
        return 0;
    char *end = nullptr;
    errno = 0;
    long value = std::strtol(text, &end, 10);
    while (*end == ' ' || *end == '\t')
        ++end;
    if (*end || errno == ERANGE || value < INT_MIN || value > INT_MAX)
        return 0;
    return static_cast<int>(value);
}

} // namespace

const char *UT_EnvControl::getName(int number)
{
    for (const utEnvEntry &e : theEntries)
        if (e.number == number)
            return e.name;
    return nullptr;
}

int UT_EnvControl::getInt(int number)
{
    const char *name = getName(number);
    if (!name)
        return 0;
    utEnvCache &cache = utCache();
    std::lock_guard<std::mutex> guard(cache.lock);
    auto it = cache.values.find(number);
    if (it != cache.values.end())
        return it->second;
    int value = utParse(std::getenv(name));
    cache.values.emplace(number, value);
    return value;
}

void UT_EnvControl::setInt(int number, int value)
{
    utEnvCache &cache = utCache();
    std::lock_guard<std::mutex> guard(cache.lock);
    cache.values[number] = value;
}

void UT_EnvControl::reload()
{
    utEnvCache &cache = utCache();
    std::lock_guard<std::mutex> guard(cache.lock);
    cache.values.clear();
}
