#include <orvo_extensions/document/effect_records.hpp>

namespace orvo {

PreProcessInfo::~PreProcessInfo() = default;
PreReleaseInfo::~PreReleaseInfo() = default;
EffectAdditionalSettings::~EffectAdditionalSettings() = default;
EffectContext::~EffectContext() = default;

} // namespace orvo
