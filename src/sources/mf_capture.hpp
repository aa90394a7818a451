/// Frames of a video by their number.
#pragma once

#include "sources/video_reader.hpp"

#include <opencv2/core/mat.hpp>

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>

namespace orvo {

/// A video open for forward reading. Named after its decoder on Windows. Owns the decoder; used from one thread.
///
/// Frame numbers count samples in order of presentation from 0, regardless of their times. But `position` also counts
/// reads: it gets one further ahead of the decoder with each call of readFrame(). On a new capture readFrame(n) returns
/// sample n and leaves a position of n + 2; the k-th read of a capture (k from 0) then returns sample n - k. Callers
/// rely on this.
class MFCapture
{
public:
    /// Opens the file. On failure `isOpen()` is false and the log has the reason at level 4.
    explicit MFCapture(const std::wstring& path);
    /// Takes over an open video.
    explicit MFCapture(std::unique_ptr<VideoReader> openReader);

    [[nodiscard]] bool isOpen() const { return reader != nullptr; }

    /// Frames per second; 30 and a line in the log if the file has no frame rate. Requires an open capture.
    [[nodiscard]] float getFps();
    /// VideoReader::frameCount(). Requires an open capture.
    [[nodiscard]] std::uint64_t frameCount() { return reader->frameCount(); }

    /// Returns CV_8UC3, blue first, upright, in its own memory, or an empty matrix if there is no such frame or it
    /// cannot be read. Decodes and converts all samples up to the requested one. An index below `position` resets the
    /// decoder to its first sample, but not the position, reads nothing and does not change `out`. Requires an open
    /// capture. Throws cv::Exception.
    void readFrame(std::uint64_t index, cv::Mat& out);

    /// The frame counter.
    [[nodiscard]] std::uint64_t framePosition() const { return position; }

private:
    std::unique_ptr<VideoReader> reader; // empty if opening failed
    std::uint64_t position = 0;
};

/// The open capture of a file; empty, with the reason in the log, if it cannot be opened.
[[nodiscard]] std::optional<MFCapture> openCapture(const std::filesystem::path& file);

} // namespace orvo
