/// What memory management sees of a cache.
#pragma once

#include <functional>

namespace orvo {

/// A cache of the process. Usable from any thread.
class ICache
{
public:
    /// Without it nothing is stored. What is stored goes with the next use, or with clear().
    virtual void setEnabled(bool enabled) = 0;
    virtual void clear() = 0;
    virtual ~ICache();
};

/// A cache that is in the process's registry while it lives.
class CacheBase : public ICache
{
public:
    CacheBase(const CacheBase&) = delete;
    CacheBase& operator=(const CacheBase&) = delete;
    ~CacheBase() override;

protected:
    CacheBase();
    /// Leaves the registry, before what the virtual functions use is destroyed.
    void withdraw();
};

/// Calls `visit` for every cache of the process, in the order of their making. None is made or destroyed meanwhile; the
/// visitor must not do so itself.
void forEachCache(const std::function<void(ICache&)>& visit);

} // namespace orvo
