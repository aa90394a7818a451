/// Seams between pictures on the sphere, cut where the pictures agree.
#pragma once

#include <orvo_common/run_control.hpp>

#include <opencv2/core.hpp>

#include <vector>

namespace orvo {

/// Of a cut, for each pixel that it gives to a picture that does not have it.
constexpr float kSeamTerminalCost = 10000.0f;

/// Makes the masks (CV_8UC1, written in place) of overlapping pictures (CV_32FC3, 0 to 255) disjoint, pair after pair
/// in the order of the list, by cv::detail::GraphCutSeamFinder with the colour cost (Kwatra et al. 2003).
///
/// The time of a graph cut grows far faster than its area, and a picture that lies across the back of the sphere has
/// the whole width of the sphere for its rectangle, most of it empty. So pairs that share no pixel are left out, which
/// changes nothing: a cut only divides what is shared. And a pair is cut apart where columns are empty in both pictures
/// over a stretch, each part with as much void around it as the finder itself lays around a pair.
///
/// `run` is asked before each cut. False if cancelled: some masks then still overlap.
bool cutSeams(const std::vector<cv::UMat>& pictures, const std::vector<cv::Point>& corners,
              std::vector<cv::UMat>& masks, float badRegionPenalty, const RunControl& run);

} // namespace orvo
