/// Which pairs of matched pictures agree about the rotations between the cameras.
#pragma once

#include <orvo_common/run_control.hpp>

#include <opencv2/core.hpp>
#include <opencv2/stitching/detail/matchers.hpp>

#include <optional>
#include <vector>

namespace orvo {

/// Cameras that turn about one point, found from the pairs that agree.
struct ConsistentViews
{
    double focal = 0.0;                 ///< in pixels of the features, the same for all
    std::vector<cv::Matx33d> rotations; ///< for each picture, from its camera to the first one's of its component
    std::vector<bool> agrees;           ///< for each entry of the list of pairs
};

/// Equal doors, lamps or tiles give pairs that match although they show different places. Each pair implies a rotation,
/// and around a loop of pairs all rotations must compose to none. Of many spanning trees of the matched pictures, for
/// focal lengths from wide angle to tele, this takes the one with which most matches agree; pictures that would then
/// show the same place without a match count against it (RANSAC after Fischler, Bolles 1981, with trees as samples).
///
/// `pairs` has an entry for each ordered pair, picture after picture, as matchers return it; only pairs with the
/// engine's confidence count. Deterministic. Empty if no two pictures match, or if cancelled.
[[nodiscard]] std::optional<ConsistentViews> findConsistentViews(const std::vector<cv::detail::ImageFeatures>& features,
                                                                 const std::vector<cv::detail::MatchesInfo>& pairs,
                                                                 const RunControl& run);

} // namespace orvo
