/// Which frame of a pan becomes the next key frame: whether a candidate still overlaps the last one well enough.
#pragma once

#include <opencv2/core/types.hpp>
#include <opencv2/stitching/detail/matchers.hpp>

namespace orvo {

/// How much of a key frame a candidate shows, and where the camera went.
struct KeyFrameOverlap
{
    double overlap = 0.0; ///< share of the frame's area, 0..1
    cv::Point2f shift;    ///< pixels by which the candidate's first corner lies up and left of the key frame's
};

/// The bounding box of a frame of `width` by `height` under `homography` (3x3), against the frame itself. No overlap
/// and no shift without a homography.
[[nodiscard]] KeyFrameOverlap overlapWithKeyFrame(const cv::Mat& homography, int width, int height);

/// Judges candidates one after the other; remembers the direction in which the camera last moved.
class KeyFrameJudge
{
public:
    /// Whether the candidate overlaps the key frame, of whose features `matches` tells, well enough to be used in its
    /// place. `size` is that of the pictures in which the features were found. Two thirds of the frame may be lost
    /// straight on and more sideways, a fifth when the camera turned back. Without a homography the mean displacement
    /// of the matches decides.
    [[nodiscard]] bool acceptCandidate(const cv::detail::MatchesInfo& matches, cv::Size size,
                                       const cv::detail::ImageFeatures& keyFeatures,
                                       const cv::detail::ImageFeatures& candidateFeatures);

private:
    cv::Point lastDirection{0, 0}; // pixels
};

} // namespace orvo
