/// What decodes behind MFCapture: Media Foundation on Windows, FFmpeg elsewhere. Each stands in a source of its own,
/// which alone sees the decoder's headers.
#pragma once

#include <opencv2/core/mat.hpp>

#include <cstdint>
#include <memory>
#include <string>

namespace orvo {

/// Frames per second as a fraction. A denominator of 0: the file does not tell.
struct VideoFrameRate
{
    std::uint32_t numerator = 0;
    std::uint32_t denominator = 0;
};

/// A video file being decoded from its first frame on. Used from one thread; the decoder may have threads of its own.
class VideoReader
{
public:
    VideoReader() = default;
    virtual ~VideoReader() = default;
    VideoReader(const VideoReader&) = delete;
    VideoReader& operator=(const VideoReader&) = delete;

    [[nodiscard]] virtual VideoFrameRate frameRate() = 0;

    /// The next sample in order of presentation, converted and turned upright: CV_8UC3, blue first, in memory that may
    /// be `out`'s own. False when there is none or it cannot be read; `out` is then not defined. Throws cv::Exception.
    [[nodiscard]] virtual bool readSample(cv::Mat& out) = 0;

    /// Goes back, so that the next sample is the first one again. False if that cannot be.
    [[nodiscard]] virtual bool seekToStart() = 0;
};

enum class VideoOpening
{
    Opened,
    NoDecoder,  ///< the platform's decoder did not start
    Unreadable, ///< no video that the decoder reads
};

struct OpenedVideo
{
    VideoOpening outcome = VideoOpening::Unreadable;
    std::int32_t code = 0; ///< the decoder's error, for the log
    std::unique_ptr<VideoReader> reader;
};

/// Opens the first video stream of a local file (its name as wideFromPath() tells it), and nothing else that the file
/// may refer to. Throws std::bad_alloc. Pixels come as stored: pixels that are not square stay so, fields stay woven,
/// primaries and transfer curve stay those of the file; matrix and range are applied. Where FFmpeg decodes, the first
/// call silences its own log for the process, unless the program has set FFmpeg's log level or callback itself:
/// failures are told in the family's log.
[[nodiscard]] OpenedVideo openVideoReader(const std::wstring& path);

} // namespace orvo
