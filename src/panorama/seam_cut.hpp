/// Seams between pictures on the sphere, placed where the pictures agree.
#pragma once

#include <orvo_common/run_control.hpp>

#include <opencv2/core.hpp>

#include <vector>

namespace orvo {

/// Cost of a cut for each pixel that it assigns to a picture that does not cover it.
constexpr float kSeamTerminalCost = 10000.0f;

/// Makes the masks (CV_8UC1, changed in place) of overlapping pictures (CV_32FC3, 0 to 255) disjoint, pair by pair in
/// the order of the list, with cv::detail::GraphCutSeamFinder and the colour cost (Kwatra et al. 2003).
///
/// The time of a graph cut grows much faster than its area, and the rectangle of a picture across the back of the
/// sphere has the full width of the sphere and is mostly empty. Pairs that share no pixel are therefore skipped, which
/// does not change the result: a cut only divides shared pixels. A pair is split where a range of columns is empty in
/// both pictures, each part with the margin that the finder puts around a pair.
///
/// `run` is polled before each cut. False if cancelled: some masks then still overlap.
bool cutSeams(const std::vector<cv::UMat>& pictures, const std::vector<cv::Point>& corners,
              std::vector<cv::UMat>& masks, float badRegionPenalty, const RunControl& run);

} // namespace orvo
