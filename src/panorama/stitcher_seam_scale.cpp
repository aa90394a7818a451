// What all renders share: pictures, seams, vignetting and gains at the seam scale.
#include "panorama/exposure_gains.hpp"
#include "panorama/panorama_stitcher.hpp"
#include "panorama/seam_cut.hpp"

#include <orvo_logger/logstream.hpp>

#include <opencv2/core/ocl.hpp>
#include <opencv2/imgproc.hpp>
#include <opencv2/stitching/detail/seam_finders.hpp>
#include <opencv2/stitching/detail/util.hpp>

#include <algorithm>
#include <cmath>

namespace orvo {
namespace {

// Seams need no more: they are cut where pictures agree, and what full size adds is hidden by blending.
constexpr double kSeamPixels = 100000.0;
constexpr double kWorkTo8Bit = 0.015564439818263054; // 255 / 16383.5 in single precision

constexpr float kSeamBadRegionPenalty = 1000.0f;
constexpr float kOverlapBadRegionPenalty = 1750.0f; // a frame placed by hand is meant to be seen

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
    if (images.empty())
        return 1.0;
    return std::min(1.0, std::sqrt(kSeamPixels / (1.0 * firstSize.height * firstSize.width)));
}

std::pair<cv::Mat, cv::Mat> PanoramaStitcher::fullSizeCamera(std::size_t index) const
{
    cv::Mat k;
    cameras[index].K().convertTo(k, CV_32F);
    for (const auto& [row, column] : {std::pair(0, 0), std::pair(0, 2), std::pair(1, 1), std::pair(1, 2)})
        k.at<float>(row, column) /= workScale;
    return {k, cameras[index].R.clone()};
}

void PanoramaStitcher::prepareWarpedImages()
{
    if (!warpedDirty)
        return;
    warpedDirty = false;
    warpedIndex.clear();
    warped16.clear();
    corners.clear();
    radiusMaps.clear();
    warped8.clear();
    warpedMasks.clear();
    seamMasks.clear();
    resultRoi = cv::Rect();

    const double scale = seamScale();
    const auto warper = makeWarper(sphereScale(), kSpherical);
    const cv::Rect bounds = warper->outputBounds();
    const cv::Size target(static_cast<int>(bounds.width * scale), static_cast<int>(bounds.height * scale));
    std::vector<cv::Size> sizes;
    for (std::size_t i = 0; i < std::min(cameras.size(), images.size()); ++i) {
        const auto [k, r] = fullSizeCamera(i);
        cv::Mat picture;
        cv::Mat mask;
        cv::Mat radius;
        const cv::Rect roi = warper->warp(images[i], masks[i], picture, mask, radius, bounds, target, k, r);
        if (roi.width < 1 || roi.height < 1)
            continue;
        warpedIndex[static_cast<std::int32_t>(i)] = static_cast<std::int32_t>(corners.size());
        corners.push_back(roi.tl());
        sizes.push_back(roi.size());
        radiusMaps.push_back(radius);
        warped8.push_back(as8Bit(picture));
        warpedMasks.push_back(mask.getUMat(cv::ACCESS_READ));
        seamMasks.push_back(warpedMasks.back().clone());
        warped16.push_back(picture);
    }
    if (!corners.empty())
        resultRoi = cv::detail::resultRoi(corners, sizes);
}

// False if cancelled; the next call starts anew.
bool PanoramaStitcher::findSeams(const CancelFunction& cancel)
{
    if (!seamsDirty)
        return true;
    seamsDirty = false;
    const std::size_t count = images.size();
    const std::size_t base = count - std::min(compositionFrameCount(), count);
    const auto cutAmong = [&](std::size_t first, std::size_t last) {
        std::vector<cv::UMat> pictures;
        std::vector<cv::UMat> seams;
        std::vector<cv::Point> places;
        for (std::size_t i = first; i < last; ++i) {
            const auto entry = warpedIndex.find(static_cast<std::int32_t>(i));
            if (entry == warpedIndex.end())
                continue;
            const auto j = static_cast<std::size_t>(entry->second);
            pictures.push_back(asFloat(warped8[j]));
            seams.push_back(seamMasks[j]); // shares its pixels: they are cut in place
            places.push_back(corners[j]);
        }
        return cutSeams(pictures, places, seams, kSeamBadRegionPenalty, cancel);
    };
    const auto startAnew = [&] {
        for (std::size_t j = 0; j < seamMasks.size(); ++j)
            seamMasks[j] = warpedMasks[j].clone();
        seamsDirty = true;
        return false;
    };
    if (!cutAmong(0, base))
        return startAnew();
    for (std::size_t frame = base; frame < count; ++frame) {
        const auto entry = warpedIndex.find(static_cast<std::int32_t>(frame));
        if (entry != warpedIndex.end())
            cutSeamsOfCompositionFrame(entry->second, base);
    }
    if (count - base >= 2 && !cutAmong(base, count))
        return startAnew();
    return true;
}

// Cuts a frame placed by hand into every base picture that it overlaps. The search runs only outside of the frame's
// mask: what the finder gives to the frame there is added to it, and the frame's own rectangle is never eaten.
void PanoramaStitcher::cutSeamsOfCompositionFrame(std::int32_t frame, std::size_t baseCount)
{
    const auto ja = static_cast<std::size_t>(frame);
    const auto overlapFinder = cv::makePtr<cv::detail::GraphCutSeamFinder>(
        cv::detail::GraphCutSeamFinderBase::COST_COLOR, kSeamTerminalCost, kOverlapBadRegionPenalty);
    cv::UMat kept = warpedMasks[ja].clone();
    for (std::size_t b = 0; b < baseCount; ++b) {
        const auto entry = warpedIndex.find(static_cast<std::int32_t>(b));
        if (entry == warpedIndex.end())
            continue;
        const auto jb = static_cast<std::size_t>(entry->second);
        const cv::Rect overlap =
            cv::Rect(corners[ja], seamMasks[ja].size()) & cv::Rect(corners[jb], seamMasks[jb].size());
        const cv::Size inner(overlap.width - 1, overlap.height - 1);
        if (inner.width < 1 || inner.height < 1)
            continue;
        const cv::Rect inFrame(overlap.tl() - corners[ja], inner);
        const cv::Rect inBase(overlap.tl() - corners[jb], inner);

        cv::UMat seamOfBase;
        seamMasks[jb](inBase).copyTo(seamOfBase);
        const std::vector<cv::UMat> pictures = {asFloat(warped8[ja](inFrame)), asFloat(warped8[jb](inBase))};
        std::vector<cv::UMat> cut = {warpedMasks[ja](inFrame).clone(), seamOfBase.clone()};
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
    if (!devignetteDirty || !useDevignette)
        return;
    devignetteDirty = false;
    devignetteModel = std::make_unique<PanoramaDevignette>();
    const std::vector<cv::Mat> seams = readable(seamMasks);
    const std::vector<cv::Mat> whole = readable(warpedMasks);
    devignetteModel->fit(warped16, seams, whole, corners, radiusMaps);
    devignetteModel->process(warped16, seams, whole, corners, radiusMaps);
    devignetted8.clear();
    for (const cv::Mat& picture : warped16)
        devignetted8.push_back(as8Bit(picture));
}

void PanoramaStitcher::prepareExposureCompensator()
{
    if (!compensatorDirty)
        return;
    compensatorDirty = false;
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
    if (!corners.empty())
        made->feed(corners, useDevignette ? devignetted8 : warped8, warpedMasks);
    compensator = made;
}

void PanoramaStitcher::applyExposureCompensation(int index, cv::Point corner, cv::InputOutputArray image,
                                                 cv::InputArray, const cv::Rect& rect, const cv::Size& size)
{
    const auto j = static_cast<std::size_t>(index);
    const cv::Mat gain = blockGains(compensator.get(), index, warped8[j].size(), functionSignature());
    if (gain.empty())
        return;
    const double sx = static_cast<double>(rect.width) / size.width;
    const double sy = static_cast<double>(rect.height) / size.height;
    const double scale = seamScale();
    const cv::Rect bounds = projectionBounds(kSpherical);
    const auto atSeamScale = [scale](double sphereUnits) {
        return static_cast<int>(static_cast<int>(sphereUnits) * scale);
    };
    const cv::Rect footprint(atSeamScale(rect.x - bounds.x + corner.x * sx),
                             atSeamScale(rect.y - bounds.y + corner.y * sy), atSeamScale(image.cols() * sx),
                             atSeamScale(image.rows() * sy));
    const cv::Rect shown = footprint & cv::Rect(corners[j], warped8[j].size());
    if (shown.empty())
        return;
    const cv::Mat part = gain(shown - corners[j]);
    const bool isLarger = image.cols() >= part.cols && image.rows() >= part.rows;
    if (isLarger && image.type() == CV_16SC3 && !cv::ocl::useOpenCL()) {
        cv::Mat picture = image.getMat();
        return multiplyByGains(picture, part);
    }
    cv::Mat fullSize;
    cv::resize(part, fullSize, image.size(), 0, 0, cv::INTER_LINEAR);
    cv::multiply(image, fullSize, image, 1.0, image.type());
}

} // namespace orvo
