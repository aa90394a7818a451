// Rendering the sphere: pictures at full size, seams, gains, and the blend.
#include "panorama/band_blender.hpp"
#include "panorama/blend_bands.hpp"
#include "panorama/compute_device.hpp"
#include "panorama/exposure_gains.hpp"
#include "panorama/fit_masks.hpp"
#include "panorama/panorama_stitcher.hpp"

#include <orvo_common/memory_manager.hpp>
#include <orvo_logger/logstream.hpp>

#include <opencv2/core/ocl.hpp>
#include <opencv2/imgproc.hpp>
#include <opencv2/stitching/detail/blenders.hpp>
#include <opencv2/stitching/detail/util.hpp>

#include <algorithm>
#include <cmath>
#include <optional>
#include <utility>

namespace orvo {
namespace {

// How much of a drawing is done after each step, for progress.
constexpr float kWarpedSmall = 0.05f;
constexpr float kPrepared = 0.25f;
constexpr float kWarped = 0.6f;
constexpr float kFed = 0.9f;

constexpr double kBlendPercent = 5.0; // of the output's mean side: the width over which pictures blend

// Blends in bands: ours on the CPU, OpenCV's on a device. Below one pixel of width OpenCV cuts without blending.
class PictureBlender
{
public:
    PictureBlender(const std::vector<cv::Point>& corners, const std::vector<cv::Size>& sizes, double blendWidth)
    {
        using cv::detail::Blender;
        const std::optional<int> bands = blendBands(blendWidth);
        if (bands && !cv::ocl::useOpenCL()) {
            ours.emplace(corners, sizes, *bands);
            return;
        }
        theirs = Blender::createDefault(bands ? Blender::MULTI_BAND : Blender::NO, false);
        if (bands)
            dynamic_cast<cv::detail::MultiBandBlender&>(*theirs).setNumBands(*bands);
        theirs->prepare(corners, sizes);
    }

    // Releases both matrices.
    void feed(cv::UMat& picture, cv::UMat& mask, const cv::Point& corner)
    {
        if (ours) {
            ours->feed(std::move(picture), mask.getMat(cv::ACCESS_READ), corner);
        } else {
            theirs->feed(picture, mask, corner);
        }
        picture.release();
        mask.release();
    }

    void blend(cv::UMat& picture, cv::UMat& mask)
    {
        if (!ours)
            return theirs->blend(picture, mask);
        cv::Mat blended;
        cv::Mat covered;
        ours->blend(blended, covered);
        picture = blended.getUMat(cv::ACCESS_RW);
        mask = covered.getUMat(cv::ACCESS_RW);
    }

private:
    std::optional<BandBlender> ours;
    cv::Ptr<cv::detail::Blender> theirs;
};

// The matrix, mapped for reading and writing while this object exists.
std::vector<cv::Mat> writable(const std::vector<cv::UMat>& matrices)
{
    std::vector<cv::Mat> mapped;
    for (const cv::UMat& matrix : matrices)
        mapped.push_back(matrix.getMat(cv::ACCESS_RW));
    return mapped;
}

// Without a copy if the receiver can share it.
void handOver(const cv::UMat& made, cv::OutputArray receiver)
{
    if (receiver.isUMat())
        receiver.assign(made);
    else
        made.copyTo(receiver);
}

} // namespace

// The warped pictures of one render, at equal indices. The largest allocations of the library: each list is freed as
// soon as no later step needs it.
struct PanoramaStitcher::FullSizeParts
{
    std::vector<std::int32_t> entries; // into the lists at the seam scale
    std::vector<cv::Point> corners;
    std::vector<cv::Size> sizes;
    std::vector<cv::UMat> pictures; // empty while they are drawn late
    std::vector<cv::UMat> wholeMasks;
    std::vector<cv::UMat> seamed;
    std::vector<cv::Mat> radii;
    std::vector<cv::Mat> seams; // the matching part at the seam scale, may be empty

    // Drawn late, pictures exist one at a time, when they are blended; masks come before all of them. Devignetting
    // compares all pictures, and a device keeps the maps of a picture for both.
    bool late = false;
    std::vector<std::size_t> sources; // indices into the registered pictures
    std::vector<cv::Mat> images;      // these pictures, as far as they are still needed
};

// Warps every picture that reaches the rectangle. False if cancelled.
bool PanoramaStitcher::warpFullSize(FullSizeParts& parts, const cv::Rect& rect, const cv::Size& size,
                                    const RunControl& run)
{
    const double sx = static_cast<double>(rect.width) / size.width;
    const double sy = static_cast<double>(rect.height) / size.height;
    const double scale = seamScale();
    const auto warper = makeWarper(sphereScale(), kSpherical);
    const cv::Rect bounds = warper->outputBounds();
    const auto atSeamScale = [scale](double sphereUnits) {
        return static_cast<int>(static_cast<int>(sphereUnits) * scale);
    };
    std::vector<cv::Mat>& images = parts.images;
    images = registered.images;
    std::vector<cv::Mat> masks = registered.masks;
    parts.late = !useDevignette && !cv::ocl::useOpenCL();
    // If a device fails, the CPU restarts from the sources.
    const bool letGo = isLastDrawing && !cv::ocl::useOpenCL();
    if (letGo)
        for (std::vector<cv::Mat>* const list : {&registered.images, &registered.masks})
            std::fill(list->begin(), list->end(), cv::Mat());
    for (std::size_t i = 0; i < images.size(); ++i) {
        if (run.cancelled())
            return false;
        const auto entry = warped.warpedIndex.find(static_cast<std::int32_t>(i));
        if (entry == warped.warpedIndex.end())
            continue;
        const auto [k, r] = fullSizeCamera(i);
        cv::UMat picture;
        cv::UMat mask;
        cv::Mat radius;
        const cv::_OutputArray radiusIfRead = useDevignette ? cv::_OutputArray(radius) : cv::_OutputArray();
        const cv::_OutputArray pictureIfNow = parts.late ? cv::_OutputArray() : cv::_OutputArray(picture);
        const cv::Rect roi = warper->warp(images[i], masks[i], pictureIfNow, mask, radiusIfRead, rect, size, k, r);
        if (letGo) {
            masks[i].release();
            if (!parts.late || roi.empty())
                images[i].release();
        }
        if (roi.empty())
            continue;
        parts.sources.push_back(i);
        parts.entries.push_back(entry->second);
        parts.corners.push_back(roi.tl());
        parts.sizes.push_back(roi.size());
        parts.pictures.push_back(picture);
        parts.wholeMasks.push_back(mask);
        parts.radii.push_back(radius);

        const auto j = static_cast<std::size_t>(entry->second);
        const cv::Rect footprint(atSeamScale(roi.x * sx + rect.x - bounds.x),
                                 atSeamScale(roi.y * sy + rect.y - bounds.y), atSeamScale(roi.width * sx),
                                 atSeamScale(roi.height * sy));
        const cv::Rect shown = footprint & cv::Rect(warped.corners[j], seams.seamMasks[j].size());
        cv::Mat seam;
        if (shown.width != 0 && shown.height != 0)
            seam = seams.seamMasks[j].getMat(cv::ACCESS_READ)(shown - warped.corners[j]);
        parts.seams.push_back(seam);
        run.report(kPrepared + (kWarped - kPrepared) * static_cast<float>(i + 1) / static_cast<float>(images.size()));
    }
    if (letGo)
        MemoryManager::instance().trim(); // the planes kept for reuse are the sources
    return true;
}

// Picture `index` of the parts, if it is drawn late. Frees its source if nobody else holds it.
cv::UMat PanoramaStitcher::warpLate(FullSizeParts& parts, std::size_t index, const cv::Rect& rect,
                                    const cv::Size& size) const
{
    const std::size_t i = parts.sources[index];
    const auto [k, r] = fullSizeCamera(i);
    cv::UMat picture;
    const auto warper = makeWarper(sphereScale(), kSpherical);
    static_cast<void>(
        warper->warp(parts.images[i], cv::noArray(), picture, cv::noArray(), cv::noArray(), rect, size, k, r));
    parts.images[i].release();
    MemoryManager::instance().trim(); // its plane would be kept for reuse
    return picture;
}

void PanoramaStitcher::applyExposureCompensation(int index, cv::Point corner, cv::InputOutputArray image,
                                                 cv::InputArray, const cv::Rect& rect, const cv::Size& size)
{
    const auto j = static_cast<std::size_t>(index);
    const cv::Mat gain =
        blockGains(exposureGains.compensator.get(), index, warped.warped8[j].size(), functionSignature());
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
    const cv::Rect shown = footprint & cv::Rect(warped.corners[j], warped.warped8[j].size());
    if (shown.empty())
        return;
    const cv::Mat part = gain(shown - warped.corners[j]);
    const bool isLarger = image.cols() >= part.cols && image.rows() >= part.rows;
    if (isLarger && image.type() == CV_16SC3 && !cv::ocl::useOpenCL()) {
        cv::Mat picture = image.getMat();
        return multiplyByGains(picture, part);
    }
    cv::Mat fullSize;
    cv::resize(part, fullSize, image.size(), 0, 0, cv::INTER_LINEAR);
    cv::multiply(image, fullSize, image, 1.0, image.type());
}

cv::Rect PanoramaStitcher::composeRaw(const cv::Rect& rect, const cv::Size& size, cv::OutputArray image,
                                      cv::OutputArray mask, const RunControl& run)
{
    if (run.cancelled())
        return {};
    const auto drawNothing = [&] {
        for (const cv::_OutputArray* output : {&image, &mask}) {
            output->create(std::max(size.height, 0), std::max(size.width, 0), CV_16SC3);
            output->setTo(cv::Scalar::all(0));
        }
        return cv::Rect();
    };
    if (registered.images.empty() || rect.empty() || size.empty())
        return drawNothing();
    prepareWarpedImages();
    run.report(kWarpedSmall);
    if (!findSeams(run))
        return {};
    applyDevignette();
    prepareExposureCompensator();
    run.report(kPrepared);

    const double sx = static_cast<double>(rect.width) / size.width;
    const double sy = static_cast<double>(rect.height) / size.height;
    const double outputPerSeam = (1.0 / sy + 1.0 / sx) * 0.5 / seamScale();
    const double blendWidth =
        std::sqrt(1.0 * warped.resultRoi.width * warped.resultRoi.height * outputPerSeam * outputPerSeam) *
        kBlendPercent / 100.0;

    // With a margin the blender's bands do not end at the frame.
    cv::Rect wide = rect;
    if (blendWidth >= 1.0) {
        const double margin = std::ceil(blendWidth);
        wide = cv::Rect(static_cast<int>(rect.x - margin * sx), static_cast<int>(rect.y - margin * sy),
                        static_cast<int>(rect.width + 2.0 * margin * sx),
                        static_cast<int>(rect.height + 2.0 * margin * sy));
    }
    wide &= projectionBounds(kSpherical);
    cv::Size wideSize = size;
    if (wide != rect) // else the quotients equal the request up to rounding, which could cost a pixel
        wideSize = cv::Size(static_cast<int>(wide.width / sx), static_cast<int>(wide.height / sy));
    if (wide.empty() || wideSize.empty())
        return drawNothing();

    FullSizeParts parts;
    if (!warpFullSize(parts, wide, wideSize, run))
        return {};
    if (parts.entries.empty())
        return drawNothing();
    const cv::Rect resultRect = cv::detail::resultRoi(parts.corners, parts.sizes);

    for (std::size_t i = 0; i < parts.entries.size(); ++i) {
        if (run.cancelled())
            return {};
        cv::UMat seamed = parts.wholeMasks[i].clone();
        if (!parts.seams[i].empty()) {
            cv::UMat seam;
            cv::resize(parts.seams[i], seam, seamed.size(), 0, 0, cv::INTER_NEAREST);
            cv::bitwise_and(seamed, seam, seamed);
        }
        parts.seams[i].release();
        parts.seamed.push_back(seamed);
    }
    {
        std::vector<cv::Mat> seamed = writable(parts.seamed);
        const std::vector<cv::Mat> whole = writable(parts.wholeMasks);
        fitMasks(seamed, whole, parts.corners);
        if (useDevignette && devignetting.devignetteModel) {
            std::vector<cv::Mat> pictures = writable(parts.pictures);
            devignetting.devignetteModel->process(pictures, seamed, whole, parts.corners, parts.radii);
        }
    }
    parts.radii.clear();
    parts.wholeMasks.clear();
    const auto compensate = [&](std::size_t i) {
        applyExposureCompensation(parts.entries[i], parts.corners[i], parts.pictures[i], parts.seamed[i], wide,
                                  wideSize);
    };
    for (std::size_t i = 0; i < parts.entries.size() && !parts.late; ++i)
        compensate(i);
    if (run.cancelled())
        return {};

    PictureBlender blender(parts.corners, parts.sizes, blendWidth);
    for (std::size_t i = 0; i < parts.entries.size(); ++i) {
        if (parts.late) {
            if (run.cancelled())
                return {};
            parts.pictures[i] = warpLate(parts, i, wide, wideSize);
            compensate(i);
        }
        blender.feed(parts.pictures[i], parts.seamed[i], parts.corners[i]);
        run.report(kWarped + (kFed - kWarped) * static_cast<float>(i + 1) / static_cast<float>(parts.entries.size()));
    }
    cv::UMat result;
    cv::UMat resultMask;
    blender.blend(result, resultMask);
    if (isLastDrawing)
        MemoryManager::instance().trim(); // the planes kept for reuse are those of the blender

    cv::Rect shown = resultRect;
    if (wide != rect) {
        const cv::Rect requested(static_cast<int>((rect.x - wide.x) / sx), static_cast<int>((rect.y - wide.y) / sy),
                                 size.width, size.height);
        const cv::Rect inside = resultRect & requested;
        shown = cv::Rect();
        if (!inside.empty()) {
            result = result(inside - resultRect.tl());
            resultMask = resultMask(inside - resultRect.tl());
            shown = inside - requested.tl();
        }
    }
    if (shown.width > 0 && shown.height > 0) {
        handOver(result, image);
        handOver(resultMask, mask);
    }
    if (run.cancelled())
        return {};
    run.report(1.0f);
    return shown;
}

cv::Size PanoramaStitcher::limitOutputSize(const cv::Size& size)
{
    constexpr double kLongest = kLongestSide;
    const double factor = std::min({1.0, kLongest / size.width, kLongest / size.height});
    return {static_cast<int>(size.width * factor), static_cast<int>(size.height * factor)};
}

cv::Rect PanoramaStitcher::makePanoramaRaw(const cv::Rect& rect, const cv::Size& size, cv::OutputArray image,
                                           cv::OutputArray mask, CancelFunction cancel)
{
    const RunControl run(required(std::move(cancel)), workProgress);
    const auto compose = [&] { return composeRaw(rect, size, image, mask, run); };
    if (registered.images.empty())
        return compose();
    return composeOnDevice(readDeviceMemory, compose, registered.images, size, functionSignature());
}

} // namespace orvo
