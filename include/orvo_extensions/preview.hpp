/// Views of an edited picture and their renders.
#pragma once

#include <orvo_common/export.hpp>
#include <orvo_core/color_profile.hpp>
#include <orvo_core/crop_description.hpp>
#include <orvo_core/geometry.hpp>
#include <orvo_core/image_data.hpp>

#include <memory>
#include <string>

namespace orvo {

/// One view. A zero size or rectangle means the whole picture.
struct PreviewContext
{
    _Size<int> size; ///< size of the whole picture at the view's scale
    _Rect<int> roi;  ///< the part to render, in pixels of the source picture

    bool operator==(const PreviewContext&) const = default;
};

/// A finished render, as a plain record. The pictures are shared and immutable.
struct RenderedData
{
    std::shared_ptr<const _ImageData<PixelRGB<float>>> image;
    std::shared_ptr<const _ImageData<float>> mask; ///< 1 where the picture has content; empty: everywhere
    std::shared_ptr<const void> option0;           ///< reserved, always empty
    std::shared_ptr<const void> option1;           ///< reserved, always empty
    PreviewContext context;                        ///< the view that the picture shows
    /// The profile to interpret the picture in.
    std::shared_ptr<ColorProfile> colorProfile = ColorProfileType::melissaRGB();
    bool option2 = false;       ///< reserved
    bool isPlaceholder = false; ///< not a real result
    std::string option3;        ///< reserved, always empty
};

} // namespace orvo
