// The third stage, which all renders share: pictures, seams, vignetting and gains at the seam scale. Each step returns
// at once unless its flag is set. It builds its result separately and stores it at the end, so that a step that throws
// or is cancelled leaves no partial result for the next attempt.
#include "panorama/panorama_stitcher.hpp"
#include "panorama/seam_cut.hpp"

#include <opencv2/imgproc.hpp>
#include <opencv2/stitching/detail/seam_finders.hpp>
#include <opencv2/stitching/detail/util.hpp>

#include <algorithm>
#include <cmath>
#include <utility>

namespace orvo {
namespace {

// Enough for seams: they are placed where pictures agree, and blending hides the detail that full size would add.
constexpr double kSeamPixels = 100000.0;
constexpr double kWorkTo8Bit = 0.015564439818263054; // 255 / 16383.5 in single precision

constexpr float kSeamBadRegionPenalty = 1000.0f;
constexpr float kOverlapBadRegionPenalty = 1750.0f; // a frame placed by hand should be visible

constexpr int kGainFeeds = 1;
constexpr int kGainFilterings = 2;
constexpr int kGainBlock = 32;

cv::UMat asFloat(const cv::UMat& picture)
{
    cv::UMat converted;
    picture.convertTo(converted, CV_32F, 1, 0);
    return converted;
}

cv::UMat as8Bit(const cv::Mat& picture)
{
    cv::Mat converted;
    picture.convertTo(converted, CV_8UC3, kWorkTo8Bit, 0);
    return converted.getUMat(cv::ACCESS_READ);
}

std::vector<cv::Mat> readable(const std::vector<cv::UMat>& matrices)
{
    std::vector<cv::Mat> mapped;
    for (const cv::UMat& matrix : matrices)
        mapped.push_back(matrix.getMat(cv::ACCESS_READ));
    return mapped;
}

} // namespace

double PanoramaStitcher::seamScale() const
{
    if (registered.images.empty())
        return 1.0;
    return std::min(1.0, std::sqrt(kSeamPixels / (1.0 * registered.firstSize.height * registered.firstSize.width)));
}

cv::Rect PanoramaStitcher::roiInOutputPixels()
{
    prepareWarpedImages();
    const cv::Rect& roi = warped.resultRoi;
    const double scale = seamScale();
    const auto outputPixels = [scale](int value) { return static_cast<int>(std::ceil(value / scale)); };
    return {outputPixels(roi.x), outputPixels(roi.y), outputPixels(roi.width), outputPixels(roi.height)};
}

void PanoramaStitcher::prepareWarpedImages()
{
    if (!warped.warpedDirty)
        return;
    WarpedImages made;
    std::vector<cv::UMat> wholeMasks;
    const double scale = seamScale();
    const auto warper = makeWarper(sphereScale(), kSpherical);
    const cv::Rect bounds = warper->outputBounds();
    const cv::Size target(static_cast<int>(bounds.width * scale), static_cast<int>(bounds.height * scale));
    std::vector<cv::Size> sizes;
    for (std::size_t i = 0; i < std::min(registered.cameras.size(), registered.images.size()); ++i) {
        const auto [k, r] = fullSizeCamera(i);
        cv::Mat picture;
        cv::Mat mask;
        cv::Mat radius;
        const cv::Rect roi =
            warper->warp(registered.images[i], registered.masks[i], picture, mask, radius, bounds, target, k, r);
        if (roi.width < 1 || roi.height < 1)
            continue;
        made.warpedIndex[static_cast<std::int32_t>(i)] = static_cast<std::int32_t>(made.corners.size());
        made.corners.push_back(roi.tl());
        sizes.push_back(roi.size());
        made.radiusMaps.push_back(radius);
        made.warped8.push_back(as8Bit(picture));
        made.warpedMasks.push_back(mask.getUMat(cv::ACCESS_READ));
        wholeMasks.push_back(made.warpedMasks.back().clone());
        made.warped16.push_back(picture);
    }
    if (!made.corners.empty())
        made.resultRoi = cv::detail::resultRoi(made.corners, sizes);
    made.warpedDirty = false;
    warped = std::move(made);
    seams.seamMasks = std::move(wholeMasks);
}

// False if cancelled; the next call starts again.
bool PanoramaStitcher::findSeams(const RunControl& run)
{
    if (!seams.seamsDirty)
        return true;
    Seams made;
    for (const cv::UMat& mask : warped.warpedMasks)
        made.seamMasks.push_back(mask.clone());
    const std::size_t count = registered.images.size();
    const std::size_t base = count - std::min(registered.frameCount, count);
    const auto cutAmong = [&](std::size_t first, std::size_t last) {
        std::vector<cv::UMat> pictures;
        std::vector<cv::UMat> masks;
        std::vector<cv::Point> places;
        for (std::size_t i = first; i < last; ++i) {
            const auto entry = warped.warpedIndex.find(static_cast<std::int32_t>(i));
            if (entry == warped.warpedIndex.end())
                continue;
            const auto j = static_cast<std::size_t>(entry->second);
            pictures.push_back(asFloat(warped.warped8[j]));
            masks.push_back(made.seamMasks[j]); // shares its pixels: they are cut in place
            places.push_back(warped.corners[j]);
        }
        return cutSeams(pictures, places, masks, kSeamBadRegionPenalty, run);
    };
    if (!cutAmong(0, base))
        return false;
    for (std::size_t frame = base; frame < count; ++frame) {
        const auto entry = warped.warpedIndex.find(static_cast<std::int32_t>(frame));
        if (entry != warped.warpedIndex.end())
            cutSeamsOfCompositionFrame(made.seamMasks, entry->second, base);
    }
    if (count - base >= 2 && !cutAmong(base, count))
        return false;
    made.seamsDirty = false;
    seams = std::move(made);
    return true;
}

// Cuts a frame placed by hand into every base picture that it overlaps. The search runs only outside the frame's mask:
// pixels that the finder assigns to the frame are added to it, and the frame's own rectangle is never reduced.
void PanoramaStitcher::cutSeamsOfCompositionFrame(std::vector<cv::UMat>& seamMasks, std::int32_t frame,
                                                  std::size_t baseCount) const
{
    const auto ja = static_cast<std::size_t>(frame);
    const auto overlapFinder = cv::makePtr<cv::detail::GraphCutSeamFinder>(
        cv::detail::GraphCutSeamFinderBase::COST_COLOR, kSeamTerminalCost, kOverlapBadRegionPenalty);
    cv::UMat kept = warped.warpedMasks[ja].clone();
    for (std::size_t b = 0; b < baseCount; ++b) {
        const auto entry = warped.warpedIndex.find(static_cast<std::int32_t>(b));
        if (entry == warped.warpedIndex.end())
            continue;
        const auto jb = static_cast<std::size_t>(entry->second);
        const cv::Rect overlap =
            cv::Rect(warped.corners[ja], seamMasks[ja].size()) & cv::Rect(warped.corners[jb], seamMasks[jb].size());
        const cv::Size inner(overlap.width - 1, overlap.height - 1);
        if (inner.width < 1 || inner.height < 1)
            continue;
        const cv::Rect inFrame(overlap.tl() - warped.corners[ja], inner);
        const cv::Rect inBase(overlap.tl() - warped.corners[jb], inner);

        cv::UMat seamOfBase;
        seamMasks[jb](inBase).copyTo(seamOfBase);
        const std::vector<cv::UMat> pictures = {asFloat(warped.warped8[ja](inFrame)),
                                                asFloat(warped.warped8[jb](inBase))};
        std::vector<cv::UMat> cut = {warped.warpedMasks[ja](inFrame).clone(), seamOfBase.clone()};
        cv::bitwise_not(cut[0], cut[0]);
        overlapFinder->find(pictures, {cv::Point(0, 0), cv::Point(0, 0)}, cut);
        cv::bitwise_not(cut[1], cut[1]);
        cv::bitwise_and(seamOfBase, cut[1], seamMasks[jb](inBase));
        cv::bitwise_not(cut[0], cut[0]);
        cv::UMat keptThere = kept(inFrame);
        cv::bitwise_or(keptThere, cut[0], keptThere);
    }
    seamMasks[ja] = kept;
}

void PanoramaStitcher::applyDevignette()
{
    if (!devignetting.devignetteDirty || !useDevignette)
        return;
    Devignetting made;
    made.devignetteModel = std::make_unique<PanoramaDevignette>();
    std::vector<cv::Mat> pictures;
    for (const cv::Mat& picture : warped.warped16)
        pictures.push_back(picture.clone());
    const std::vector<cv::Mat> seamMasks = readable(seams.seamMasks);
    const std::vector<cv::Mat> whole = readable(warped.warpedMasks);
    made.devignetteModel->fit(pictures, seamMasks, whole, warped.corners, warped.radiusMaps);
    made.devignetteModel->process(pictures, seamMasks, whole, warped.corners, warped.radiusMaps);
    for (const cv::Mat& picture : pictures)
        made.devignetted8.push_back(as8Bit(picture));
    made.devignetteDirty = false;
    devignetting = std::move(made);
    warped.warped16 = std::move(pictures);
}

void PanoramaStitcher::prepareExposureCompensator()
{
    if (!exposureGains.compensatorDirty)
        return;
    using namespace cv::detail;
    const auto made = ExposureCompensator::createDefault(ExposureCompensator::GAIN_BLOCKS);
    if (auto* const gain = dynamic_cast<GainCompensator*>(made.get())) {
        gain->setNrFeeds(kGainFeeds);
    } else if (auto* const channels = dynamic_cast<ChannelsCompensator*>(made.get())) {
        channels->setNrFeeds(kGainFeeds);
    } else if (auto* const blocks = dynamic_cast<BlocksCompensator*>(made.get())) {
        blocks->setNrFeeds(kGainFeeds);
        blocks->setNrGainsFilteringIterations(kGainFilterings);
        blocks->setBlockSize(kGainBlock, kGainBlock);
    }
    if (!warped.corners.empty())
        made->feed(warped.corners, useDevignette ? devignetting.devignetted8 : warped.warped8, warped.warpedMasks);
    exposureGains = {false, made};
}

} // namespace orvo
