// The source of the pictures, and the state that a new set of them invalidates.
#include "panorama/panorama_stitcher.hpp"

#include <utility>

namespace orvo {

PanoramaStitcher::PanoramaStitcher(const PanoSource& panoSource)
    : source(std::in_place_index<0>, panoSource), useDevignette(panoSource.settings.devignette)
{}

PanoramaStitcher::PanoramaStitcher(std::vector<PictureInput> pictures, const PanoramaStitchingSettings& settings)
    : source(std::in_place_index<0>, std::move(pictures), settings), useDevignette(settings.devignette)
{}

PanoramaStitcher::PanoramaStitcher(const PanoSourceHDR& panoSource) : source(std::in_place_index<1>, panoSource) {}

PanoramaStitcher::PanoramaStitcher(const PanoSourceVideo& panoSource) : source(std::in_place_index<2>, panoSource) {}

bool PanoramaStitcher::loadImages(CancelFunction cancel)
{
    const std::vector<cv::Mat> loaded = std::visit([&](auto& provider) { return provider.load(cancel); }, source);
    rotateSphere.rotateImageDirty = true;
    exposureGains.compensatorDirty = true;
    warped.warpedDirty = true;
    seams.seamsDirty = true;
    return !loaded.empty() && estimateCameras(loaded, cancel);
}

void PanoramaStitcher::reloadWithComposition(const std::vector<std::uint64_t>& frames,
                                             const std::vector<_Rect<int>>& rects, const CancelFunction& cancel)
{
    auto* const video = std::get_if<PanoramaVideoProvider>(&source);
    if (!video)
        return;
    video->setCompositionFrames(frames, rects);
    rotateSphere.rotateImageDirty = true;
    exposureGains.compensatorDirty = true;
    warped.warpedDirty = true;
    seams.seamsDirty = true;
    devignetting.devignetteDirty = true;
    estimateCameras(video->getImages(), cancel);
}

void PanoramaStitcher::setVideoInterval(std::uint64_t start, std::uint64_t end)
{
    if (auto* const video = std::get_if<PanoramaVideoProvider>(&source))
        video->setInterval(start, end);
}

void PanoramaStitcher::cancelLoad(bool cancel)
{
    if (auto* const brackets = std::get_if<PanoramaHDRProvider>(&source))
        brackets->cancelLoad(cancel);
}

void PanoramaStitcher::setLoadCallback(std::function<void(float)> progress)
{
    std::visit([&](auto& provider) { provider.setLoadCallback(std::move(progress)); }, source);
}

std::size_t PanoramaStitcher::compositionFrameCount() const
{
    const auto* const video = std::get_if<PanoramaVideoProvider>(&source);
    return video ? video->getCompositionRects().size() : 0;
}

void PanoramaStitcher::drawOnceMore()
{
    isLastDrawing = true;
    std::visit([](auto& provider) { provider.dropImages(); }, source);
}

} // namespace orvo
