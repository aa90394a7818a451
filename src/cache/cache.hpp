/// Values computed on demand, of which the latest used are kept.
#pragma once

#include "cache/i_cache.hpp"

#include <cstddef>
#include <future>
#include <iterator>
#include <list>
#include <mutex>
#include <utility>

namespace orvo {

/// At most N values by their keys, the least recently used goes first. The producer of a value runs when the first
/// waiter asks its future, on that waiter's thread and without the lock; a second waiter gets the same value, or the
/// same exception. Keys carry all that a value depends on, so nothing ever has to be invalidated. Usable from any
/// thread.
template <typename Value, typename Key, std::size_t N>
class Cache final : public CacheBase
{
public:
    Cache() = default;
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

    /// The value of `key`; `producer` is called if there is none yet.
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
