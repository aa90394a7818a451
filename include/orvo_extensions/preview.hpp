/// Views of a picture in an editor, and the results of rendering them.
#pragma once

#include <orvo_common/export.hpp>
#include <orvo_core/color_profile.hpp>
#include <orvo_core/crop_description.hpp>
#include <orvo_core/geometry.hpp>
#include <orvo_core/image_data.hpp>

#include <memory>
#include <string>

namespace orvo {

/// One view. A zero size or rectangle is not given: the whole picture.
struct PreviewContext
{
    _Size<int> size; ///< of the whole picture in the view: the scale of the view
    _Rect<int> roi;  ///< the part to render, in pixels of the source picture

    bool operator==(const PreviewContext&) const = default;
};

/// A finished render. A plain record; the pictures are shared and never change.
struct RenderedData
{
    std::shared_ptr<const _ImageData<PixelRGB<float>>> image;
    std::shared_ptr<const _ImageData<float>> mask; ///< 1 where the picture has content; empty: everywhere
    std::shared_ptr<const void> option0;           ///< stored only, stays empty
    std::shared_ptr<const void> option1;           ///< stored only, stays empty
    PreviewContext context;                        ///< the view that the picture shows
    /// The profile that the receiver assumes.
    std::shared_ptr<ColorProfile> colorProfile = ColorProfileType::melissaRGB();
    bool option2 = false;       ///< stored only
    bool isPlaceholder = false; ///< gray or empty, instead of a result
    std::string option3;        ///< stored only, stays empty
};

} // namespace orvo
