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

/// One call of Effect::processImage(). A record; copies share pictures and lists. Flags and effect are the caller's and
/// outlive the call.
struct ORVO_EXPORT EffectCallContext
{
    /// `source`: what the effect starts from. `result`: what it writes; of the size of `source`, or empty, in which
    /// case the effect makes it. `unedited`: the picture before any effect; may be empty. `rect`: the part that counts;
    /// the zero rectangle is the whole picture. `image`: the document image; kept. `cancelRun`, `cancelEffect`: true
    /// when the whole run, or this effect, is to stop; null if that cannot happen. `effect`: who calls. `processed`:
    /// gets a line for each effect of the run; may be empty.
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

    /// Whether either flag is set.
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
