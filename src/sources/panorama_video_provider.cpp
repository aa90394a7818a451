#include "sources/panorama_video_provider.hpp"

#include "frame/call_frame.hpp"
#include "sources/video_frames.hpp"

#include <orvo_logger/logstream.hpp>

#include <opencv2/core.hpp>

#include <algorithm>
#include <stdexcept>
#include <string>
#include <utility>

namespace orvo {
namespace {

// The text of the exception being handled.
void logFailure(const char* text)
{
    LOG(__orvolog() << LogMessageType::Error << "failed to load video images " << text);
    details::stateFailure(details::failureOfOpenCv());
}

} // namespace

PanoramaVideoProvider::PanoramaVideoProvider(const PanoSourceVideo& source)
    : PanoramaProvider(source.settings), file(source.file), start(source.start), end(source.end),
      compositionFrames(source.frames), compositionRects(source.rects)
{}

std::vector<cv::Mat> PanoramaVideoProvider::load(std::function<bool()> canceled)
{
    const RunControl run(requiredCancel(std::move(canceled)), progress);
    if (needsLoad) {
        try {
            if (!selectAll(run))
                return {};
        } catch (const cv::Exception& error) {
            logFailure(error.what());
            images.clear();
        } catch (const std::runtime_error& error) {
            logFailure(error.what());
            images.clear();
        } catch (...) {
            logFailure("");
            images.clear();
        }
    }
    if (run.cancelled())
        return {};
    return images;
}

// False if the interval has no frame.
bool PanoramaVideoProvider::selectAll(const RunControl& run)
{
    images = selectKeyFrames(file, start, end, run);
    keyFrameCount = images.size();
    if (keyFrameCount == 0)
        return false;
    applyCompositionFrames();
    needsLoad = false;
    return true;
}

void PanoramaVideoProvider::setInterval(std::uint64_t start_, std::uint64_t end_)
{
    if (start_ == start && end_ == end)
        return;
    start = start_;
    end = end_;
    needsLoad = true;
}

void PanoramaVideoProvider::setCompositionFrames(const std::vector<std::uint64_t>& frames,
                                                 const std::vector<_Rect<int>>& rects)
{
    if (images.size() > keyFrameCount)
        images.resize(static_cast<std::size_t>(keyFrameCount));
    compositionFrames = frames;
    compositionRects = rects;
    applyCompositionFrames();
}

void PanoramaVideoProvider::applyCompositionFrames()
{
    std::vector<std::uint64_t> frames = std::exchange(compositionFrames, {});
    const std::vector<_Rect<int>> rects = std::exchange(compositionRects, {});
    std::vector<std::pair<std::uint64_t, std::size_t>> owners;
    for (std::size_t i = 0; i < frames.size(); ++i)
        owners.emplace_back(frames[i], i);
    std::sort(owners.begin(), owners.end());
    std::transform(owners.begin(), owners.end(), frames.begin(), [](const auto& owner) { return owner.first; });
    const std::vector<cv::Mat> read = readCompositionFrames(file, frames);
    for (std::size_t i = 0; i < read.size(); ++i) {
        if (read[i].empty())
            continue;
        const std::size_t owner = owners[i].second;
        compositionFrames.push_back(frames[i]);
        // A frame without a rectangle is not shown.
        compositionRects.push_back(owner < rects.size() ? rects[owner] : _Rect<int>());
        images.push_back(read[i]);
    }
}

} // namespace orvo
