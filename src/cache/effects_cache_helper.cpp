#include "cache/effects_cache_helper.hpp"

namespace orvo {

EffectsCacheHelper::EffectsCacheHelper() : shared(std::make_shared<Map>()) {}

EffectsCacheHelper::EffectsCacheHelper(const EffectsCacheHelper&) = default;
EffectsCacheHelper::EffectsCacheHelper(EffectsCacheHelper&&) noexcept = default;
EffectsCacheHelper& EffectsCacheHelper::operator=(const EffectsCacheHelper&) = default;
EffectsCacheHelper& EffectsCacheHelper::operator=(EffectsCacheHelper&&) noexcept = default;
EffectsCacheHelper::~EffectsCacheHelper() = default;

} // namespace orvo
