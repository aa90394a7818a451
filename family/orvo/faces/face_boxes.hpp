/// Finds of several detectors, brought together to faces.
#pragma once

#include <opencv2/core.hpp>

#include <vector>

namespace orvo {

/// One find of one detector.
struct FaceVote
{
    cv::Rect2d box;
    int detector = 0; ///< which one, counted from 0
    int support = 0;  ///< windows beside each other that agree
};

/// Finds that show the same thing.
struct FaceCandidate
{
    cv::Rect2d box;    ///< their mean, by support
    int detectors = 0; ///< how many different ones
    int support = 0;   ///< windows of all
};

/// Area in common over area of both together, 0..1.
[[nodiscard]] double overlap(const cv::Rect2d& a, const cv::Rect2d& b);

/// Whether two boxes cannot be two faces: they overlap by half, or the centre of the smaller one lies well inside the
/// larger.
[[nodiscard]] bool sameFace(const cv::Rect2d& a, const cv::Rect2d& b);

/// Groups votes that overlap. The order of `votes` does not matter.
[[nodiscard]] std::vector<FaceCandidate> gathered(std::vector<FaceVote> votes);

/// Drops of each two candidates that are the same face the weaker one; the rest from top to bottom, left to right.
[[nodiscard]] std::vector<FaceCandidate> distinct(std::vector<FaceCandidate> candidates);

} // namespace orvo
