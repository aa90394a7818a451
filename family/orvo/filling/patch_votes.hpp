/// Paints the hole from the votes of the patches over each of its pixels.
#pragma once

#include "filling/fill_level.hpp"
#include "filling/fill_settings.hpp"
#include "filling/patch_field.hpp"

#include <orvo_core/image_data.hpp>

namespace orvo::details {

/// Repaints the hole of `level`: each pixel becomes the weighted mean of the source pixels that the patches over it
/// assign to it. A vote weighs more the better its patch fits, compared with the others over the pixel, and the nearer
/// the patch is to known pixels.
void vote(FillLevel& level, const PatchField& field, const PatchFillSettings& settings);

/// The same at the finest level, with the samples of the picture, whose part `window` the level shows. Writes the
/// pixels of `result` that `hole` marks.
void voteInFull(const FillLevel& level, const PatchField& field, const PatchFillSettings& settings, const Hole& hole,
                const _Rect<int>& window, _ImageData<PixelRGB<float>>& result);

} // namespace orvo::details
