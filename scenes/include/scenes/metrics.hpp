/// Measures how far a picture or a map is from the truth.
#pragma once

#include <orvo_core/image_data.hpp>
#include <scenes/homography.hpp>

namespace orvo::scenes {

using Picture = _ImageData<PixelRGB<float>>;

/// Peak signal to noise ratio over all channels in dB, peak 1; infinite for equal pictures. Throws
/// std::invalid_argument if the sizes differ or a picture is empty.
[[nodiscard]] double psnr(const Picture& a, const Picture& b);

/// Mean structural similarity of luma (Rec. 601 on the encoded values, full scale 1), -1..1: Gaussian window of 11x11,
/// deviation 1.5, K1 = 0.01, K2 = 0.03, where the whole window fits (Wang, Bovik, Sheikh, Simoncelli, IEEE TIP 13(4),
/// 2004). Throws std::invalid_argument if the sizes differ or a side is below 11. Peak: two planes of one channel.
[[nodiscard]] double ssim(const Picture& a, const Picture& b);

/// The largest distance in pixels between the images of a picture's corner pixels under two maps; `size` is its size.
[[nodiscard]] double cornerError(const Homography& found, const Homography& truth, _Size<int> size);

/// Among the pixels with a mask value above 0.5, the share, 0..1, with a channel that differs by more than `tolerance`
/// or is NaN; 0 if the mask has no such pixel. Throws std::invalid_argument if the sizes differ.
[[nodiscard]] double wrongShare(const Picture& found, const Picture& truth, const _ImageData<float>& mask,
                                float tolerance);

/// The largest difference of hue in degrees between pixels of linear light with the primaries of sRGB, in Oklab, where
/// both have at least `leastChroma`; 0 if no pixel has. Exposure does not matter. Throws std::invalid_argument if the
/// sizes differ.
[[nodiscard]] double hueError(const Picture& found, const Picture& truth, double leastChroma);

/// The chroma of each pixel in Oklab. Linear light with the primaries of sRGB.
[[nodiscard]] std::shared_ptr<_ImageData<float>> chromaOf(const Picture& picture);

} // namespace orvo::scenes
