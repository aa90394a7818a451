/// The interface of a cache to memory management.
#pragma once

#include <functional>

namespace orvo {

/// A cache. Usable from any thread.
class ICache
{
public:
    /// Switching it off stops storing; stored values go with the next use or clear().
    virtual void setEnabled(bool enabled) = 0;
    virtual void clear() = 0;
    virtual ~ICache();
};

/// A cache that registers itself with the process for its lifetime.
class CacheBase : public ICache
{
public:
    CacheBase(const CacheBase&) = delete;
    CacheBase& operator=(const CacheBase&) = delete;
    ~CacheBase() override;

protected:
    CacheBase() = default;
    /// Enters the registry; derived classes call it when they are whole, since a visitor may come at once.
    void enter();
    /// Leaves the registry; derived classes call it before their members are destroyed.
    void withdraw();
};

/// Calls `visit` for every cache of the process, in order of construction. Blocks construction and destruction of
/// caches meanwhile, so the visitor must do neither.
void forEachCache(const std::function<void(ICache&)>& visit);

} // namespace orvo
