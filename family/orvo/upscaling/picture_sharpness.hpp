/// Measures how the pixels of a picture came about.
#pragma once

#include <orvo_core/image_data.hpp>

#include <array>

namespace orvo::details {

/// The model of scripts/train_upscaler/sharpness.py.
using SharpnessModel = std::array<float, 6>;

/// 0 for a picture whose pixels are means over their area or more, as cameras and careful reductions leave it; 1 for
/// one that was reduced by interpolation, whose edges are steep and full of stairs; between them where either is
/// possible.
///
/// Two ratios of the energies of luma differences, in blocks of 16 x 16 pixels with clear structure, describe the shape
/// of the spectrum without the contrast: how much is left near the highest frequency, and how much in the middle. How
/// sharp the subject was changes both, so neither suffices alone. `noise` is that of noiseLevel(): its energy is
/// subtracted, and blocks that it could fill do not count. 0.5 without clear structure. At most about 4000 blocks are
/// measured. The same for any number of threads.
[[nodiscard]] float pictureSharpness(const _ImageData<PixelRGB<float>>& picture, float noise,
                                     const SharpnessModel& model);

} // namespace orvo::details
