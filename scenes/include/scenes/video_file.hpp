/// Videos with known frames, as files of a camera or phone. For tests and benchmarks.
#pragma once

#include <orvo_core/geometry.hpp>

#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <vector>

namespace orvo::scenes {

enum class VideoCodec
{
    H264,
    Hevc,
    Mpeg4,
    Ffv1, ///< lossless; in MKV only
};

/// The matrix between red, green, blue and the stored luminance and colour differences.
enum class VideoMatrix
{
    Unnamed, ///< BT.601, not marked in the file
    Bt601,
    Bt709,
};

struct VideoFileSettings
{
    VideoCodec codec = VideoCodec::H264;
    int rateNumerator = 30; ///< frames per second; 30000 over 1001 is 29.97
    int rateDenominator = 1;
    /// Presentation time of each frame in milliseconds, strictly increasing, one per frame; empty: at the rate above.
    /// MP4 keeps negative times, whose frames its edit list removes from the presentation.
    std::vector<std::int64_t> timesMs;
    int bFrames = 3;           ///< consecutive frames predicted from both sides, 0..4; Ffv1 has none
    int keyFrameInterval = 12; ///< frames from one key frame to the next, 1 or more
    int rotationDegrees = 0;   ///< 0, 90, 180, 270: how a player rotates the stored picture, clockwise
    bool mirrored = false;     ///< a player swaps left and right before it rotates
    VideoMatrix matrix = VideoMatrix::Unnamed;
    bool fullRange = false;        ///< luminance 0..255 instead of 16..235
    bool fullColourPlanes = false; ///< colour differences for each pixel instead of one for four; H264 and Ffv1
    bool tenBits = false;          ///< 10 bits instead of 8; H264, Hevc and Ffv1, not with fullColourPlanes
    bool sound = false;            ///< a track of PCM before the video track; MKV only
};

/// Draws frame `index`: 8-bit blue, green, red, rows without gaps, as stored (before a player rotates it).
using DrawVideoFrame = std::function<void(std::size_t index, std::uint8_t* bgr)>;

/// Writes `frames` frames of `size` (both sides even) to `path`; the extension selects the container (mp4, mov, mkv,
/// avi). Throws std::runtime_error that names the failed step, std::invalid_argument.
void writeVideo(const std::filesystem::path& path, _Size<int> size, std::size_t frames, const DrawVideoFrame& draw,
                const VideoFileSettings& settings);

/// Writes a file with a second of sound and no video.
void writeSound(const std::filesystem::path& path);

/// Draws a number, 0..32767, as 4 by 4 black and white fields with a parity bit, which survives compression.
void drawFrameNumber(std::uint8_t* bgr, _Size<int> size, std::uint32_t number);

/// Reads it from 8-bit pixels, rows without gaps; empty if there is none.
[[nodiscard]] std::optional<std::uint32_t> readFrameNumber(const std::uint8_t* bgr, _Size<int> size);

} // namespace orvo::scenes
