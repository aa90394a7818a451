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

/// How an edit blends with what lies below. Further values belong to the library that blends.
enum class BlendModeType : std::int32_t
{
    Normal = 0,
};

/// Display and shape of an edit's mask. Only carried here; initially 0.
struct ORVO_EXPORT MaskSetting
{
    std::uint64_t bits = 0;

    bool operator==(const MaskSetting&) const = default;
};

/// A picture of its result that an edit keeps; initially empty. Only carried here; copies share the pixels.
struct ORVO_EXPORT ImageDump
{
    std::shared_ptr<const _ImageData<PixelRGB<float>>> pixels;

    [[nodiscard]] bool empty() const { return pixels == nullptr; }
};

/// Names for display, by effect.
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

    /// There is something to apply.
    explicit operator bool() const { return !parameters.empty(); }
    /// The edit is in its initial state.
    [[nodiscard]] bool isResetState() const { return parameters.empty(); }
};

/// Where the mask of an effect is stored.
struct ORVO_EXPORT EffectMaskInfo
{
    std::string identifier;
    std::string resource;

    /// Either text is missing, so that there is no mask.
    [[nodiscard]] bool empty() const { return identifier.empty() || resource.empty(); }
};

} // namespace orvo
