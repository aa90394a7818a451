/// A least-recently-used cache of values computed on demand.
#pragma once

#include "cache/i_cache.hpp"

#include <cstddef>
#include <future>
#include <iterator>
#include <list>
#include <mutex>
#include <utility>

namespace orvo {

/// Holds at most N values by key and evicts the least recently used first. A producer runs on the thread of the first
/// waiter on its future, outside of the lock; later waiters get the same value or the same exception. Keys carry
/// everything a value depends on, so no entry ever goes stale. Usable from any thread.
template <typename Value, typename Key, std::size_t N>
class Cache final : public CacheBase
{
public:
    Cache() { enter(); }
    ~Cache() override { withdraw(); }

    void setEnabled(bool enable) override
    {
        const std::lock_guard lock(mutex);
        enabled = enable;
    }

    void clear() override
    {
        Entries dropped; // released without the lock: values are large, and producers may hold anything
        const std::lock_guard lock(mutex);
        dropped.swap(entries);
    }

    /// The value of `key`, from `producer` if it is not cached.
    template <typename Producer>
    [[nodiscard]] std::shared_future<Value> get(Key key, Producer producer)
    {
        Entries dropped;
        const std::lock_guard lock(mutex);
        if (!enabled) {
            dropped.swap(entries);
            return std::async(std::launch::deferred, std::move(producer)).share();
        }
        auto found = entries.begin();
        while (found != entries.end() && !(found->first == key))
            ++found;
        if (found != entries.end()) {
            if (entries.size() > 1)
                entries.splice(entries.end(), entries, found);
            return entries.back().second;
        }
        entries.emplace_back(std::move(key), std::async(std::launch::deferred, std::move(producer)).share());
        while (entries.size() > N)
            dropped.splice(dropped.end(), entries, entries.begin());
        return entries.back().second;
    }

private:
    using Entries = std::list<std::pair<Key, std::shared_future<Value>>>;

    bool enabled = true;
    std::mutex mutex;
    Entries entries; // oldest use at the front
};

} // namespace orvo
