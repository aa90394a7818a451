/// Views of a picture that is being edited, and what a render of one answers.
#pragma once

#include <orvo_common/export.hpp>
#include <orvo_core/color_profile.hpp>
#include <orvo_core/crop_description.hpp>
#include <orvo_core/geometry.hpp>
#include <orvo_core/image_data.hpp>

#include <memory>
#include <string>

namespace orvo {

/// One view. A zero size or rectangle means that it is not given: the whole picture.
struct PreviewContext
{
    _Size<int> size; ///< of the whole picture as the view shows it: the scale of the view
    _Rect<int> roi;  ///< the part to render, in pixels of the source picture

    bool operator==(const PreviewContext&) const = default;
};

/// A finished render. A plain record; the pictures are shared and nobody changes them.
struct RenderedData
{
    std::shared_ptr<const _ImageData<PixelRGB<float>>> image;
    std::shared_ptr<const _ImageData<float>> mask; ///< 1 where the picture has content; empty: everywhere
    std::shared_ptr<const void> option0;           ///< kept, stays empty
    std::shared_ptr<const void> option1;           ///< kept, stays empty
    PreviewContext context;                        ///< what the picture shows
    /// What the receiver is to take the picture for.
    std::shared_ptr<ColorProfile> colorProfile = ColorProfileType::melissaRGB();
    bool option2 = false;       ///< kept
    bool isPlaceholder = false; ///< this is no real result
    std::string option3;        ///< kept, stays empty
};

} // namespace orvo
