/// Where a picture is sharp and bright.
#pragma once

#include <opencv2/core.hpp>

#include <optional>
#include <vector>

namespace orvo {

/// Values of kTilesAcross x kTilesAcross tiles of a picture, by rows.
struct TileMap
{
    cv::Size size;             ///< of the picture in pixels
    std::vector<float> detail; ///< half the log2 of the mean square of the Laplacian, not below that of the noise
    std::vector<float> light;  ///< mean linear luminance, 0..1
};

/// Of a gray picture of 8 bits, encoded as sRGB.
[[nodiscard]] TileMap tileMapOf(const cv::Mat& gray);

/// What changed from one picture of a view to another.
struct TileChange
{
    /// Octaves: how differently the tiles gained and lost fine detail, as the difference of high and low quantiles over
    /// the tiles with detail. A change of the whole picture, by a shaking hand or another exposure, does not count; a
    /// moved plane of focus makes some tiles sharper and others softer. Tiles in which something else appears, such as
    /// a moving subject, do not count either: their light changes.
    float sharpness = 0.0f;
    float ev = 0.0f; ///< the median of the change of light
};

/// `firstFromSecond` maps pixels of the second picture to those of the first. Empty if too few tiles are in both.
[[nodiscard]] std::optional<TileChange> tileChange(const TileMap& first, const TileMap& second,
                                                   const cv::Matx33d& firstFromSecond);

} // namespace orvo
