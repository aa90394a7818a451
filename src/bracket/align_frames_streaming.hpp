/// Registers the frames of a focus series, one at a time.
#pragma once

#include "bracket/fine_registration.hpp"
#include "bracket/frames.hpp"

#include <opencv2/core/mat.hpp>

#include <cstddef>
#include <filesystem>
#include <functional>

namespace orvo {

/// Asks for one frame at a time, in order, warps it onto frame `referenceIndex`, and hands it on with the rectangle in
/// which the warped frame is valid: the whole frame for the reference, which is not warped; empty if nothing is left.
/// A warped frame has a new `image`; outside of what the frame showed it is a mirror of its edge. Holds the reference
/// and the present frame only.
void alignFramesStreaming(const std::function<FocusStackerFrame(int)>& getFrame,
                          const std::function<void(int, FocusStackerFrame&, _Rect<int>)>& consume, std::size_t count,
                          std::size_t referenceIndex);

/// Warps a frame to its place in the geometry of the reference, by lanczosWarp(), and returns the rectangle in which it
/// is valid. A frame that was not registered stays as it is and is reported as such. Peak: the picture that it is
/// warped from, and the one that it becomes.
[[nodiscard]] _Rect<int> alignToPlace(FocusStackerFrame& frame, const FineRegistration& place,
                                      const std::filesystem::path& reference);

/// The homography (CV_32F 3x3) that takes reference coordinates to frame coordinates, by enhanced correlation of the
/// gray pictures at `scale` (Evangelidis, Psarakis, PAMI 30(10), 2008), starting from `transform`. If that does not
/// converge, it logs an error and returns a copy of `transform`.
[[nodiscard]] cv::Mat registerECC(const FocusStackerFrame& reference, const FocusStackerFrame& frame, float scale,
                                  const cv::Mat& transform);

} // namespace orvo
