#include "sources/panorama_hdr_provider.hpp"

#include "frame/image_bridge.hpp"

#include <algorithm>

namespace orvo {
namespace {

using Paths = std::vector<std::filesystem::path>;
using PicturePointer = std::shared_ptr<_ImageData<PixelRGB<float>>>;

std::filesystem::path smallest(const Paths& paths)
{
    return paths.empty() ? std::filesystem::path() : *std::min_element(paths.begin(), paths.end());
}

PicturePointer mergeBracket(const Paths& paths, const HDRSettings& hdr,
                            const std::function<void(HDRMergingPhaseName)>& phaseProgress)
{
    const auto image = make_HDR(paths, hdr, {}, phaseProgress).first;
    if (!image)
        return {};
    return image->imageData({}, {}, true);
}

} // namespace

PanoramaHDRProvider::PanoramaHDRProvider(const PanoSourceHDR& source)
    : PanoramaProvider(source.settings), brackets(source.brackets), hdr(source.hdr)
{
    std::stable_sort(brackets.begin(), brackets.end(),
                     [](const Paths& a, const Paths& b) { return smallest(a) < smallest(b); });
    // Created here, so that a cancel from another thread never races with a load that reads the pointer.
    if (!hdr.cancelFlag)
        hdr.cancelFlag = std::make_shared<std::atomic<unsigned char>>();
}

std::vector<cv::Mat> PanoramaHDRProvider::load(std::function<bool()> canceled)
{
    const RunControl run(requiredCancel(std::move(canceled)), progress);
    images.clear();
    images.resize(brackets.size());
    const auto count = static_cast<float>(brackets.size());
    const float perBracket = 1.0f / count;
    // A bracket has seven phases; after the last one a step remains for the caller.
    const float perPhase = 1.0f / (7.0f * count + 1.0f);
    for (std::size_t i = 0; i < brackets.size(); ++i) {
        const float done = static_cast<float>(i) * perBracket;
        const auto phaseProgress = [&](HDRMergingPhaseName phase) {
            // The start of a single frame has a separate number, far above those of the other phases.
            const int number = phase == HDRMergingPhaseName::SingleFrameStarted ? 0 : static_cast<int>(phase);
            run.report(static_cast<float>(number + 1) * perPhase + done);
        };
        PicturePointer picture = mergeBracket(brackets[i], hdr, phaseProgress);
        if (!picture) {
            details::stateLastFailure(
                {FailureKind::Internal, smallest(brackets[i]), "merging the bracket returned no picture"});
            (void)run.cancelled();
            return {};
        }
        images[i] = cvMatFromImageData(std::move(picture)); // converts to sRGB
        run.report(static_cast<float>(i + 1) * perBracket);
        if (run.cancelled())
            return {};
    }
    return images;
}

void PanoramaHDRProvider::cancelLoad(bool cancel) { hdr.cancelFlag->store(cancel ? 1 : 0); }

} // namespace orvo
