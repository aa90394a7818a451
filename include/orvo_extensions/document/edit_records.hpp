/// Small values that an edit carries.
#pragma once

#include <orvo_common/export.hpp>
#include <orvo_core/image_data.hpp>
#include <orvo_extensions/document/parameter.hpp>

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace orvo {

/// How an edit blends with the picture below. Further values belong to the library that blends.
enum class BlendModeType : std::int32_t
{
    Normal = 0,
};

/// Display and shape of an edit's mask. Only passed on here; initially 0.
struct ORVO_EXPORT MaskSetting
{
    std::uint64_t bits = 0;

    bool operator==(const MaskSetting&) const = default;
};

/// A picture of an edit's result; initially empty. Only passed on here; copies share the pixels.
struct ORVO_EXPORT ImageDump
{
    std::shared_ptr<const _ImageData<PixelRGB<float>>> pixels;

    [[nodiscard]] bool empty() const { return pixels == nullptr; }
};

/// Display names, by effect.
using PrettyNames = std::map<std::string, std::wstring>;

/// A summary of an edit, for lists of edits. Plain data; the functions here read `parameters` only.
struct ORVO_EXPORT EditInfo
{
    EditInfo();
    ~EditInfo();
    EditInfo(const EditInfo&);
    EditInfo& operator=(const EditInfo&);
    EditInfo(EditInfo&&) noexcept;
    EditInfo& operator=(EditInfo&&) noexcept;

    std::vector<Parameter> parameters;
    std::string mask;
    bool hasMask = false;
    bool enabled = true;
    PrettyNames prettyNames;
    bool locked = false;
    bool permanent = false;
    std::wstring name;

    /// True if there is something to apply.
    explicit operator bool() const { return !parameters.empty(); }
    /// True if the edit is in its initial state.
    [[nodiscard]] bool isResetState() const { return parameters.empty(); }
};

/// Where the mask of an effect is stored.
struct ORVO_EXPORT EffectMaskInfo
{
    std::string identifier;
    std::string resource;

    /// True if either text is missing: there is no mask.
    [[nodiscard]] bool empty() const { return identifier.empty() || resource.empty(); }
};

} // namespace orvo
