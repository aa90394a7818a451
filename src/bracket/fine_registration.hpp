/// Registers frames to a small fraction of a pixel, however differently they are focused or exposed.
#pragma once

#include "bracket/frame_structure.hpp"

#include <opencv2/core/matx.hpp>

#include <vector>

namespace orvo {

/// How the camera may have moved between two frames.
enum class FrameMovement
{
    Series, ///< shift, turn and scale; more only if a homography agrees clearly better, since blur can imitate a tilt
    Hand,   ///< a homography
};

/// A frame with known position.
struct PlacedStructure
{
    const FrameStructure* structure = nullptr;
    cv::Matx33d frameFromReference = cv::Matx33d::eye();
};

struct FineRegistration
{
    bool found = false;
    /// Maps pixels of the reference to those of the frame, centres at integers. If not found: the start.
    cv::Matx33d frameFromReference = cv::Matx33d::eye();
};

/// Places `frame`, which has the size of the others, in the geometry of a reference by comparing it with one or more
/// frames placed there already: the reference itself, which it should fit in the end, and a neighbour, which is focused
/// or exposed more like it. Starts from `start`; from an identity it finds movements of up to a tenth of the picture.
///
/// Method: Gauss-Newton on the differences between the structures, from the coarsest level to the finest, with the mean
/// of both gradients (Malis, "Improving vision-based control using efficient second-order minimization techniques",
/// ICRA 2004), each difference weighted down the larger it is, since much of what one frame shows sharp is blurred or
/// clipped in the other. Not found: the structures do not agree at the found position, or hardly
/// overlap, or are turned or scaled by more than a fifth.
///
/// Sums have a fixed order, so the result does not depend on the number of threads. Peak: a plane of one channel of the
/// finest level for the frame and for each placed frame other than the reference.
[[nodiscard]] FineRegistration registerFinely(const std::vector<PlacedStructure>& placed, const FrameStructure& frame,
                                              const cv::Matx33d& start, FrameMovement movement);

} // namespace orvo
