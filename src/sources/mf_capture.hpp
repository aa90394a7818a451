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

/// A video open for reading forward. Named after the decoder it has on Windows. Owns that decoder; used from one
/// thread.
///
/// Frame numbers count samples in order of presentation from 0, whatever their times. But `position` counts reads too:
/// it runs ahead of the decoder by one for each call of readFrame(). From a fresh capture readFrame(n) gives sample n
/// and leaves a position of n + 2; the k-th read of a capture (k from 0) then gives sample n - k. Callers rely on it.
class MFCapture
{
public:
    /// Opens the file. Where that fails, `isOpen()` is false and the log has the reason at level 4.
    explicit MFCapture(const std::wstring& path);
    /// Takes over an open video.
    explicit MFCapture(std::unique_ptr<VideoReader> openReader);

    [[nodiscard]] bool isOpen() const { return reader != nullptr; }

    /// Frames per second; 30 and a line in the log where the file does not tell. Needs an open capture.
    [[nodiscard]] float getFps();

    /// Gives CV_8UC3, blue first, upright, in memory of its own, or an empty matrix where there is no such frame or it
    /// cannot be read. Decodes and converts all samples up to the wanted one. An index below `position` takes the
    /// decoder back to its first sample, but not the position, reads nothing and leaves `out` as it was. Needs an open
    /// capture. Throws cv::Exception.
    void readFrame(std::uint64_t index, cv::Mat& out);

    /// The frame counter.
    [[nodiscard]] std::uint64_t framePosition() const { return position; }

private:
    std::unique_ptr<VideoReader> reader; // empty when opening failed
    std::uint64_t position = 0;
};

/// The open capture of a file; empty, with the reason in the log, when it cannot be opened.
[[nodiscard]] std::optional<MFCapture> openCapture(const std::filesystem::path& file);

} // namespace orvo
