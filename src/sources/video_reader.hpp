/// The decoder of MFCapture: Media Foundation on Windows, FFmpeg elsewhere. Each has its own source file, the only one
/// that includes the decoder's headers.
#pragma once

#include <opencv2/core/mat.hpp>

#include <cstdint>
#include <memory>
#include <string>

namespace orvo {

/// Frames per second as a fraction. A denominator of 0: the file has no frame rate.
struct VideoFrameRate
{
    std::uint32_t numerator = 0;
    std::uint32_t denominator = 0;
};

/// A video file, decoded from its first frame on. Used from one thread; the decoder may have its own threads.
class VideoReader
{
public:
    VideoReader() = default;
    virtual ~VideoReader() = default;
    VideoReader(const VideoReader&) = delete;
    VideoReader& operator=(const VideoReader&) = delete;

    [[nodiscard]] virtual VideoFrameRate frameRate() = 0;

    /// About how many samples the file contains, by its header; 0 if that is unknown. For progress only.
    [[nodiscard]] virtual std::uint64_t frameCount() { return 0; }

    /// The next sample in order of presentation, converted and upright: CV_8UC3, blue first; may reuse the memory of
    /// `out`. False if there is none or it cannot be read; `out` is then undefined. Throws cv::Exception.
    [[nodiscard]] virtual bool readSample(cv::Mat& out) = 0;

    /// Rewinds, so that the next sample is the first one again. False if that is not possible.
    [[nodiscard]] virtual bool seekToStart() = 0;
};

enum class VideoOpening
{
    Opened,
    NoDecoder,  ///< the platform's decoder did not start
    Unreadable, ///< not a video that the decoder can read
};

struct OpenedVideo
{
    VideoOpening outcome = VideoOpening::Unreadable;
    std::int32_t code = 0; ///< the decoder's error, for the log
    std::unique_ptr<VideoReader> reader;
};

/// Opens the first video stream of a local file (its name as returned by wideFromPath()), and no other file that it may
/// refer to. Throws std::bad_alloc. Pixels are returned as stored: non-square pixels are not resampled, fields stay
/// interlaced, primaries and transfer curve remain those of the file; matrix and range are applied. With FFmpeg the
/// first call silences FFmpeg's log for the process, unless the program has set its log level or callback: failures go
/// to the family's log.
[[nodiscard]] OpenedVideo openVideoReader(const std::wstring& path);

} // namespace orvo
