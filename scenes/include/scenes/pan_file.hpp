/// A camera that turns, as a video file.
#pragma once

#include <scenes/video_file.hpp>

#include <cstddef>
#include <filesystem>

namespace orvo::scenes {

/// Writes a pan to the right over a sphere scene to `path`, and returns it: `frames` frames of 160 x 120 pixels, 53
/// degrees wide, each 1.5 degrees on from the one before. Throws as writeVideo() does.
std::filesystem::path writePan(const std::filesystem::path& path, std::size_t frames,
                               const VideoFileSettings& settings = {});

} // namespace orvo::scenes
