/// Frames of a video for a panorama: those that cover a pan, and those requested by number.
#pragma once

#include <orvo_common/run_control.hpp>

#include <opencv2/core/mat.hpp>

#include <cstdint>
#include <filesystem>
#include <functional>
#include <vector>

namespace orvo {

/// Both return working colour matrices: CV_16SC3, blue first, at the video's size, upright. Both block the caller and
/// throw cv::Exception, std::bad_alloc. A file that cannot be opened gives an empty list and a line in the log at level
/// 4. The same file gives the same frames for any number of threads.

/// The key frames of frames `start` .. `end` - 1: the first one, then always the last one that overlaps its predecessor
/// enough to be stitched, 36 at most. About ten frames per second are examined; a video with fewer than ten frames per
/// second gives only its first frame. A frame that cannot be read ends the walk with the frames found so far, but the
/// first one throws, and so does a frame without key points after one that has some. `progress` receives 0..1 and must
/// be callable. `canceled` is polled between the steps; true gives an empty list. Features: SURF (Bay, Ess, Tuytelaars,
/// Van Gool, CVIU 110(3), 2008) at 0.6 megapixels. Peak: the key frames in 8 bits, then one by one in 16 bits, and the
/// decoder's frames.
[[nodiscard]] std::vector<cv::Mat> selectVideoFrames(const std::filesystem::path& file, std::uint64_t start,
                                                     std::uint64_t end, const std::function<void(float)>& progress,
                                                     const std::function<bool()>& canceled);

/// The same for internal callers; states the failure.
[[nodiscard]] std::vector<cv::Mat> selectKeyFrames(const std::filesystem::path& file, std::uint64_t start,
                                                   std::uint64_t end, const RunControl& run);

/// One matrix for each number, in the order of `frames`, which should be ascending: reads go forward, by the counter of
/// MFCapture. A frame that cannot be read gives an empty matrix.
[[nodiscard]] std::vector<cv::Mat> readCompositionFrames(const std::filesystem::path& file,
                                                         const std::vector<std::uint64_t>& frames);

} // namespace orvo
