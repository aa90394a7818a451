/// Combines the finds of several detectors into faces.
#pragma once

#include <opencv2/core.hpp>

#include <vector>

namespace orvo {

/// One find of one detector.
struct FaceVote
{
    cv::Rect2d box;
    int detector = 0; ///< its index, from 0
    int support = 0;  ///< number of adjacent windows that agree
};

/// Finds that show the same face.
struct FaceCandidate
{
    cv::Rect2d box;    ///< mean box, weighted by support
    int detectors = 0; ///< number of different detectors
    int support = 0;   ///< total number of windows
};

/// Intersection over union, 0..1.
[[nodiscard]] double overlap(const cv::Rect2d& a, const cv::Rect2d& b);

/// Whether two boxes cannot be two faces: they overlap by half, or the centre of the smaller one is well inside the
/// larger.
[[nodiscard]] bool sameFace(const cv::Rect2d& a, const cv::Rect2d& b);

/// Groups votes that overlap. The order of `votes` does not matter.
[[nodiscard]] std::vector<FaceCandidate> gathered(std::vector<FaceVote> votes);

/// Of two candidates for the same face drops the weaker one; returns the rest from top to bottom, left to right.
[[nodiscard]] std::vector<FaceCandidate> distinct(std::vector<FaceCandidate> candidates);

} // namespace orvo
