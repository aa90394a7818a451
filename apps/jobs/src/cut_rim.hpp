/// Repair of drawn panoramas where the sphere was resampled.
#pragma once

#include <orvo_core/image_data.hpp>

#include <memory>

namespace orvo::jobs {

/// The sphere is cut behind the camera. Where a turned view or a planet shows the cut, its two ends leave a slit in the
/// content: up to three pixels between content that count as content here.
[[nodiscard]] std::shared_ptr<const _ImageData<float>> withoutSlits(const _ImageData<float>& mask);

/// What content encloses counts as content, such as the foot of a little planet that no picture shows.
[[nodiscard]] std::shared_ptr<const _ImageData<float>> withoutHoles(const _ImageData<float>& mask);

/// What is beside a picture, where its content reaches the sides.
enum class Beside
{
    Nothing,      ///< the content ends there
    OtherSide,    ///< left and right continue each other: a full turn
    MoreOfContent ///< on all sides: the picture is cut out of the content
};

/// The picture within the bounds of its content. The outermost `rim` pixels of the content, mixed with the black beside
/// it, become white like the surroundings; slits are filled from both sides. Empty if nothing is left. `coverage` may
/// be null; else it receives 1 for the pixels of the content and 0 for the white ones. Peak: the new picture, its
/// coverage, and two planes of bytes.
[[nodiscard]] std::shared_ptr<const _ImageData<PixelRGB<float>>>
withoutRim(const _ImageData<PixelRGB<float>>& picture, const _ImageData<float>& mask, int rim, Beside beside,
           std::shared_ptr<const _ImageData<float>>* coverage = nullptr);

} // namespace orvo::jobs
