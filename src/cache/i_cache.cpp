#include "cache/i_cache.hpp"

#include <algorithm>
#include <mutex>
#include <vector>

namespace orvo {
namespace {

struct Registry
{
    std::mutex mutex;
    std::vector<ICache*> caches;
};

// Never destroyed, since a cache in a static object may outlive this one.
Registry& registry()
{
    static auto* const all = new Registry;
    return *all;
}

} // namespace

ICache::~ICache() = default;

void CacheBase::enter()
{
    const std::lock_guard lock(registry().mutex);
    registry().caches.push_back(this);
}

CacheBase::~CacheBase() { withdraw(); }

void CacheBase::withdraw()
{
    const std::lock_guard lock(registry().mutex);
    auto& caches = registry().caches;
    caches.erase(std::remove(caches.begin(), caches.end(), this), caches.end());
}

void forEachCache(const std::function<void(ICache&)>& visit)
{
    const std::lock_guard lock(registry().mutex);
    for (ICache* const cache : registry().caches)
        visit(*cache);
}

} // namespace orvo
