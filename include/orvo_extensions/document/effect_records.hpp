/// Records that an effect receives.
#pragma once

#include <orvo_common/export.hpp>
#include <orvo_core/geometry.hpp>
#include <orvo_core/image_data.hpp>
#include <orvo_extensions/document/edit_records.hpp>

#include <functional>
#include <memory>
#include <string>

namespace orvo {

class EffectsCacheHelper;

/// Where an effect applies.
struct ORVO_EXPORT EffectMaskLayer
{
    std::string identifier;
    std::shared_ptr<const MaskImage> mask; ///< 0: not at all, 1: in full; empty: everywhere
};

/// Data known before a picture is processed. Only passed on here; libraries that need more derive from it.
class ORVO_EXPORT PreProcessInfo
{
public:
    PreProcessInfo() = default;
    virtual ~PreProcessInfo();
    PreProcessInfo(const PreProcessInfo&) = default;
    PreProcessInfo& operator=(const PreProcessInfo&) = default;
};

/// The same, for removing an effect.
class ORVO_EXPORT PreReleaseInfo
{
public:
    PreReleaseInfo() = default;
    virtual ~PreReleaseInfo();
    PreReleaseInfo(const PreReleaseInfo&) = default;
    PreReleaseInfo& operator=(const PreReleaseInfo&) = default;
};

/// Settings beyond parameters. Only passed on here; libraries that need more derive from it.
class ORVO_EXPORT EffectAdditionalSettings
{
public:
    EffectAdditionalSettings() = default;
    virtual ~EffectAdditionalSettings();
    EffectAdditionalSettings(const EffectAdditionalSettings&) = default;
    EffectAdditionalSettings& operator=(const EffectAdditionalSettings&) = default;
};

/// The environment of an effect. Only passed on here; libraries that need more derive from it.
class ORVO_EXPORT EffectContext
{
public:
    EffectContext() = default;
    virtual ~EffectContext();
    EffectContext(const EffectContext&) = default;
    EffectContext& operator=(const EffectContext&) = default;
};

/// A part of a picture of `size`, to map between the input and the output of an effect.
struct ORVO_EXPORT GetRectParameters
{
    _Rect<int> rect;
    _Size<int> size;
};

/// How the result of an effect is mixed with its input.
struct ORVO_EXPORT EffectsBlendData
{
    float opacity = 1.0f; ///< 0 to 1
    BlendModeType mode = BlendModeType::Normal;
};

/// Whether a run processed an effect.
struct ORVO_EXPORT EffectProcessInfo
{
    std::string effectID;
    bool processed = false;
};

/// The cache that the effects of a run share; may be empty.
struct ORVO_EXPORT CacheEnvironment
{
    std::shared_ptr<EffectsCacheHelper> cache;
};

/// Data that an effect keeps between the runs of one edit.
struct ORVO_EXPORT EditCacheInfo
{
    std::shared_ptr<const _ImageData<PixelRGB<float>>> source; ///< the picture that the cache belongs to
    std::shared_ptr<EffectsCacheHelper> cache;
    std::function<void()> sourceChanged; ///< called when the cache no longer matches the source; may be empty
};

} // namespace orvo
