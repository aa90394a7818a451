#include "sources/mf_capture.hpp"

#include <orvo_common/wide_path.hpp>
#include <orvo_logger/logstream.hpp>

#include <utility>

namespace orvo {
namespace {

// The usual rate of phones, for files without a frame rate.
constexpr float kDefaultFps = 30.0f;

} // namespace

MFCapture::MFCapture(const std::wstring& path)
{
    OpenedVideo video = openVideoReader(path);
    reader = std::move(video.reader);
    if (video.outcome == VideoOpening::NoDecoder)
        LOG(__orvolog() << LogMessageType::Error << functionSignature() << ": "
                        << "Failed to initialize Media Foundation.");
    else if (video.outcome == VideoOpening::Unreadable)
        LOG(__orvolog() << LogMessageType::Error << functionSignature() << ": "
                        << "Failed initializing media foundation reader with error code " << video.code);
}

MFCapture::MFCapture(std::unique_ptr<VideoReader> openReader) : reader(std::move(openReader)) {}

float MFCapture::getFps()
{
    const VideoFrameRate rate = reader->frameRate();
    if (rate.denominator != 0)
        return static_cast<float>(rate.numerator) / static_cast<float>(rate.denominator);
    details::logWarning(functionSignature() + ": Error reading video fps");
    return kDefaultFps;
}

void MFCapture::readFrame(std::uint64_t index, cv::Mat& out)
{
    if (index < position) {
        if (!reader->seekToStart()) {
            out = cv::Mat();
            return;
        }
        // Going back to `index` means reading 0 .. index - 1 first. Each of these reads finds the counter ahead of it,
        // so it reads no sample and increments the counter.
        position += index;
    }
    cv::Mat sample; // outside the loop: skipped samples reuse its memory
    while (position <= index) {
        ++position;
        if (!reader->readSample(sample)) {
            out = cv::Mat();
            return;
        }
        if (position > index)
            out = std::move(sample);
    }
    ++position;
}

std::optional<MFCapture> openCapture(const std::filesystem::path& file)
{
    std::optional<MFCapture> capture(std::in_place, wideFromPath(file));
    if (!capture->isOpen())
        capture.reset();
    return capture;
}

} // namespace orvo
