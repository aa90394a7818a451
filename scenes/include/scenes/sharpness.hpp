/// Measures the sharpness of a picture, and how much of the sharpness of a focus series its stack preserves.
#pragma once

#include <orvo_core/image_data.hpp>

#include <memory>
#include <vector>

namespace orvo::scenes {

using Picture = _ImageData<PixelRGB<float>>;

/// The focus measure of each pixel: the modified Laplacian, |2I - left - right| + |2I - above - below| with neighbours
/// `step` pixels away, summed over the square of `window` pixels around the pixel (Nayar, Nakagawa, "Shape from focus",
/// IEEE PAMI 16(8), 1994; without their threshold on single values: sharpnessRatio() has one on the sum). I is luma
/// (Rec. 601 on the encoded values, full scale 1); 0 where the picture is flat or changes at a constant rate. The edge
/// of the picture is repeated. Throws std::invalid_argument if the picture is empty, `step` is not 1..64, or `window`
/// is not an odd number 1..127. Peak: two planes of one channel besides the result. The result does not depend on the
/// number of threads.
[[nodiscard]] std::shared_ptr<_ImageData<float>> sumModifiedLaplacian(const Picture& picture, int step, int window);

struct SharpnessSettings
{
    int step = 1;   ///< pixels, as sumModifiedLaplacian()
    int window = 5; ///< pixels, as sumModifiedLaplacian()
    /// Standard deviation of the noise in the luma of the inputs, 0 or more, full scale 1. Pixels where even the best
    /// input has at most twice the measure of such noise alone are ignored, so that flat areas, in which no frame is
    /// sharper than another, have no influence. The default is two steps of 8 bits.
    double noise = 2.0 / 255.0;
};

/// The sharpness of `result` as a share of the best of the aligned `inputs`: the sum of sumModifiedLaplacian(result)
/// over that of the largest measure of any input, pixel by pixel, both where the latter is above the noise. 1 means all
/// the sharpness of the inputs; less is blur, more is noise, ringing or sharpening. 1 if no pixel counts. Throws
/// std::invalid_argument without inputs, if sizes differ, if the noise is below 0, and as sumModifiedLaplacian(). Peak:
/// four planes of one channel, however many inputs. The result does not depend on the number of threads.
[[nodiscard]] double sharpnessRatio(const Picture& result, const std::vector<std::shared_ptr<const Picture>>& inputs,
                                    const SharpnessSettings& settings);

} // namespace orvo::scenes
