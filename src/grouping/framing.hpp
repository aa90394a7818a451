/// Whether two thumbnails show the same view, views that overlap, or different places.
#pragma once

#include "grouping/tile_sharpness.hpp"

#include <opencv2/core.hpp>

#include <cstdint>
#include <filesystem>
#include <vector>

namespace orvo {

/// A thumbnail, reduced to what comparisons need.
struct Thumbnail
{
    cv::Size size;                   ///< longest side kThumbnailSide, or less for smaller pictures
    std::vector<cv::Point2f> points; ///< of local features
    cv::Mat descriptors;             ///< a row of 8 bits for each point
    TileMap tiles;
};

/// Reads a small version of the picture and finds its features. Throws FailureError. Results do not depend on the
/// number of threads.
/// Features: SIFT, Lowe, IJCV 60(2), 2004, after local equalisation, so that exposures can be compared.
[[nodiscard]] Thumbnail readThumbnail(const std::filesystem::path& path);

enum class FramingKind : std::int32_t
{
    Unknown,   ///< one of the two is too dark, too bright or too plain
    Unrelated, ///< nothing in common
    Related,   ///< a part of each is seen by the other
};

struct Framing
{
    FramingKind kind = FramingKind::Unknown;
    double overlap = 0.0;                             ///< share of the smaller picture that the other shows too, 0..1
    cv::Matx33d firstFromSecond = cv::Matx33d::eye(); ///< in pixels of the thumbnails
    double scale = 1.0; ///< size of objects in the second by that in the first, in the middle of what both show
};

/// A homography between the features, accepted by the probabilistic criterion of Brown and Lowe, IJCV 74(1), 2007.
/// Always finds the same: its random numbers have a fixed seed.
[[nodiscard]] Framing compareFramings(const Thumbnail& first, const Thumbnail& second);

/// Smallest overlap of pictures with the same framing: brackets from the hand shift by up to a sixth of the picture in
/// each direction.
inline constexpr double kSameOverlap = 0.7;

} // namespace orvo
