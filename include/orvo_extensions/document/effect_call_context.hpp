/// The argument of an effect's processing.
#pragma once

#include <orvo_common/export.hpp>
#include <orvo_core/geometry.hpp>
#include <orvo_core/image.hpp>
#include <orvo_core/image_data.hpp>
#include <orvo_extensions/document/effect_records.hpp>

#include <atomic>
#include <memory>
#include <vector>

namespace orvo {

class Effect;

/// One call of Effect::processImage(). A record; copies share pictures and lists. The caller owns the flags and the
/// effect, which outlive the call.
struct ORVO_EXPORT EffectCallContext
{
    /// `source`: the input of the effect. `result`: its output, of the size of `source`; if empty, the effect creates
    /// it. `unedited`: the picture before any effect; may be empty. `rect`: the part to process; the zero rectangle is
    /// the whole picture. `image`: the document image, which the context shares. `cancelRun`, `cancelEffect`: true when
    /// the whole run, or this effect, must stop; may be null. `effect`: the effect that is called. `processed`:
    /// receives an entry for each effect of the run; may be empty.
    EffectCallContext(std::shared_ptr<const _ImageData<PixelRGB<float>>> source,
                      std::shared_ptr<_ImageData<PixelRGB<float>>> result,
                      std::shared_ptr<const _ImageData<PixelRGB<float>>> unedited, const _Rect<int>& rect,
                      std::shared_ptr<Image>& image, EffectsBlendData blend, const std::atomic<bool>* cancelRun,
                      const std::atomic<bool>* cancelEffect, Effect* effect,
                      std::shared_ptr<std::vector<EffectProcessInfo>> processed, CacheEnvironment cache);
    ~EffectCallContext();
    EffectCallContext(const EffectCallContext&);
    EffectCallContext& operator=(const EffectCallContext&);
    EffectCallContext(EffectCallContext&&) noexcept;
    EffectCallContext& operator=(EffectCallContext&&) noexcept;

    /// True if either flag is set.
    [[nodiscard]] bool canceled() const;

    std::shared_ptr<const _ImageData<PixelRGB<float>>> source;
    std::shared_ptr<_ImageData<PixelRGB<float>>> result;
    std::shared_ptr<const _ImageData<PixelRGB<float>>> unedited;
    _Rect<int> rect;
    std::shared_ptr<Image> image;
    EffectsBlendData blend;
    const std::atomic<bool>* cancelRun;
    const std::atomic<bool>* cancelEffect;
    Effect* effect;
    std::shared_ptr<std::vector<EffectProcessInfo>> processed;
    CacheEnvironment cache;
};

} // namespace orvo
