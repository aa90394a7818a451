#include <orvo_extensions/document/effect_call_context.hpp>

#include <utility>

namespace orvo {

EffectCallContext::EffectCallContext(std::shared_ptr<const _ImageData<PixelRGB<float>>> from,
                                     std::shared_ptr<_ImageData<PixelRGB<float>>> to,
                                     std::shared_ptr<const _ImageData<PixelRGB<float>>> before, const _Rect<int>& part,
                                     std::shared_ptr<Image>& documentImage, EffectsBlendData blending,
                                     const std::atomic<bool>* runFlag, const std::atomic<bool>* effectFlag,
                                     Effect* caller, std::shared_ptr<std::vector<EffectProcessInfo>> list,
                                     CacheEnvironment environment)
    : source(std::move(from)), result(std::move(to)), unedited(std::move(before)), rect(part), image(documentImage),
      blend(blending), cancelRun(runFlag), cancelEffect(effectFlag), effect(caller), processed(std::move(list)),
      cache(std::move(environment))
{}

EffectCallContext::~EffectCallContext() = default;
EffectCallContext::EffectCallContext(const EffectCallContext&) = default;
EffectCallContext& EffectCallContext::operator=(const EffectCallContext&) = default;
EffectCallContext::EffectCallContext(EffectCallContext&&) noexcept = default;
EffectCallContext& EffectCallContext::operator=(EffectCallContext&&) noexcept = default;

bool EffectCallContext::canceled() const
{
    const auto isSet = [](const std::atomic<bool>* flag) {
        return flag != nullptr && flag->load(std::memory_order_relaxed);
    };
    return isSet(cancelRun) || isSet(cancelEffect);
}

} // namespace orvo
