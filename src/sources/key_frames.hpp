/// Selects the next key frame of a pan: a candidate must still overlap the last one well enough.
#pragma once

#include <opencv2/core/types.hpp>
#include <opencv2/stitching/detail/matchers.hpp>

namespace orvo {

/// The overlap of a candidate with a key frame, and the movement of the camera.
struct KeyFrameOverlap
{
    double overlap = 0.0; ///< share of the frame's area, 0..1
    cv::Point2f shift;    ///< pixels by which the candidate's first corner is up and left of the key frame's
};

/// Compares the bounding box of a frame of `width` by `height` under `homography` (3x3) with the frame. No overlap and
/// no shift without a homography.
[[nodiscard]] KeyFrameOverlap overlapWithKeyFrame(const cv::Mat& homography, int width, int height);

/// Judges candidates in sequence; remembers the last direction of the camera.
class KeyFrameJudge
{
public:
    /// True if the candidate overlaps the key frame, to which `matches` refers, well enough to replace it. `size` is
    /// that of the pictures in which the features were found. Two thirds of the frame may be lost straight ahead and
    /// more sideways, a fifth if the camera turned back. Without a homography the mean displacement of the matches
    /// decides.
    [[nodiscard]] bool acceptCandidate(const cv::detail::MatchesInfo& matches, cv::Size size,
                                       const cv::detail::ImageFeatures& keyFeatures,
                                       const cv::detail::ImageFeatures& candidateFeatures);

private:
    cv::Point lastDirection{0, 0}; // pixels
};

} // namespace orvo
