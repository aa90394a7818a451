/// The cache shared by the effects of a document.
#pragma once

#include <orvo_core/effect_cache.hpp>

#include <memory>
#include <unordered_map>

namespace orvo {

/// A handle to one map, shared by its copies. A moved-from handle holds none.
class EffectsCacheHelper
{
public:
    using Map = std::unordered_map<CacheKeyIndex, CacheObject>;

    EffectsCacheHelper();
    EffectsCacheHelper(const EffectsCacheHelper&);
    EffectsCacheHelper(EffectsCacheHelper&&) noexcept;
    EffectsCacheHelper& operator=(const EffectsCacheHelper&);
    EffectsCacheHelper& operator=(EffectsCacheHelper&&) noexcept;
    ~EffectsCacheHelper();

    [[nodiscard]] const std::shared_ptr<Map>& map() const { return shared; }

private:
    std::shared_ptr<Map> shared;
};

} // namespace orvo
