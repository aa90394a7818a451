#include "sources/own_random_numbers.hpp"
#include "panorama/panorama_stitcher.hpp"
#include "panorama/stitcher_registration_adjuster.hpp"

#include <orvo_common/text.hpp>
#include <orvo_logger/logstream.hpp>

#include <opencv2/calib3d.hpp>
#include <opencv2/imgproc.hpp>
#include <opencv2/stitching/detail/motion_estimators.hpp>
#include <opencv2/stitching/detail/util.hpp>
#include <opencv2/xfeatures2d/nonfree.hpp>

#include <algorithm>
#include <cfloat>
#include <cmath>

namespace orvo {
namespace {

// Features are found on at most so many pixels: more cost time and add matches that do not move the cameras.
constexpr double kWorkPixels = 600000.0;
constexpr double kWorkTo8Bit = 0.015564439832758568; // 255 / 16383.5

constexpr double kSurfHessian = 100.0;
constexpr int kSurfOctaves = 4;
constexpr int kSurfLayers = 3;

constexpr float kMatchConfidence = 0.5f; // of a match, of a pair in the biggest component and in the adjustment
constexpr int kFewestMatches = 6;
// A pair that fits suspiciously well (the same picture twice) is not thrown out.
constexpr double kNoConfidenceLimit = DBL_MAX;

// Bundle adjustment starts from a rough guess and may need to go on from where it failed.
constexpr int kAdjustmentTries = 4;

// Views count as far from the horizon beyond some 45 degrees of pitch, if they look about the same way.
constexpr float kSteepPitch = 0.7f;
constexpr float kNarrowSpread = 0.5f;

float medianFocal(const std::vector<cv::detail::CameraParams>& cameras)
{
    std::vector<double> focals;
    for (const auto& camera : cameras)
        focals.push_back(camera.focal);
    std::sort(focals.begin(), focals.end());
    const std::size_t half = focals.size() / 2;
    if (focals.size() % 2 == 1)
        return static_cast<float>(focals[half]);
    return static_cast<float>(focals[half - 1] + focals[half]) * 0.5f;
}

cv::Mat rotationOf(float x, float y, float z)
{
    const cv::Mat vector = (cv::Mat_<float>(3, 1) << x, y, z);
    cv::Mat rotation;
    cv::Rodrigues(vector, rotation);
    return rotation;
}

} // namespace

PanoramaStitcher::PanoramaStitcher(const PanoSource& panoSource)
    : source(std::in_place_index<0>, panoSource), useDevignette(panoSource.settings.devignette)
{}

PanoramaStitcher::PanoramaStitcher(const PanoSourceHDR& panoSource) : source(std::in_place_index<1>, panoSource) {}

PanoramaStitcher::PanoramaStitcher(const PanoSourceVideo& panoSource) : source(std::in_place_index<2>, panoSource) {}

bool PanoramaStitcher::loadImages(CancelFunction cancel)
{
    const std::vector<cv::Mat> loaded = std::visit([&](auto& provider) { return provider.load(cancel); }, source);
    compensatorDirty = true;
    warpedDirty = true;
    seamsDirty = true;
    return !loaded.empty() && estimateCameras(loaded, cancel);
}

void PanoramaStitcher::reloadWithComposition(const std::vector<std::uint64_t>& frames,
                                             const std::vector<_Rect<int>>& rects)
{
    auto* const video = std::get_if<PanoramaVideoProvider>(&source);
    if (!video)
        return;
    video->setCompositionFrames(frames, rects);
    compensatorDirty = true;
    warpedDirty = true;
    seamsDirty = true;
    devignetteDirty = true;
    estimateCameras(video->getImages());
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

std::vector<cv::detail::ImageFeatures> PanoramaStitcher::findFeatures(const CancelFunction& cancel)
{
    workScale = -1.0f;
    std::vector<cv::detail::ImageFeatures> features;
    for (const cv::Mat& image : images) {
        if (image.empty())
            continue;
        if (cancel && cancel())
            return {};
        if (workScale < 0.0f)
            workScale = static_cast<float>(std::min(1.0, std::sqrt(kWorkPixels / (1.0 * image.rows * image.cols))));
        cv::Mat small;
        cv::resize(image, small, cv::Size(), static_cast<double>(workScale), static_cast<double>(workScale),
                   cv::INTER_AREA);
        small.convertTo(small, CV_8UC3, kWorkTo8Bit, 0);
        cv::detail::ImageFeatures found;
        cv::detail::computeImageFeatures(finder, small, found, cv::noArray());
        found.img_idx = static_cast<int>(features.size());
        features.push_back(std::move(found));
    }
    return features;
}

// All of a picture may be used; of a frame that the user added by hand only the rectangle that the user drew.
void PanoramaStitcher::makeMasks()
{
    const std::size_t frames = std::min(compositionFrameCount(), images.size());
    const std::size_t base = images.size() - frames;
    masks.clear();
    cv::Mat whole;
    for (std::size_t i = 0; i < images.size(); ++i) {
        if (i < base) {
            // Nobody writes into the masks of pictures, so that those of one size can be one.
            if (whole.size() != images[i].size())
                whole = cv::Mat(images[i].size(), CV_8UC1, cv::Scalar(255));
            masks.push_back(whole);
            continue;
        }
        const _Rect<int> part = std::get<PanoramaVideoProvider>(source).getCompositionRects()[i - base];
        cv::Mat mask = cv::Mat::zeros(images[i].size(), CV_8UC1);
        const cv::Rect inside =
            cv::Rect(part.x, part.y, part.width, part.height) & cv::Rect(cv::Point(), images[i].size());
        if (!inside.empty())
            mask(inside).setTo(255);
        masks.push_back(std::move(mask));
    }
}

bool PanoramaStitcher::estimateCameras(const std::vector<cv::Mat>& sources, const CancelFunction& cancel)
{
    const OwnRandomNumbers ownRandomNumbers; // the same pictures give the same cameras every time
    if (finder.empty())
        finder = cv::xfeatures2d::SURF::create(kSurfHessian, kSurfOctaves, kSurfLayers, false, false);
    if (matcher.empty())
        matcher = cv::makePtr<CancellableMatcher>(false, kMatchConfidence, kFewestMatches, kFewestMatches,
                                                  kNoConfidenceLimit);
    masks.clear();
    cameras.clear();
    images = sources;
    status = 2; // until proved otherwise: also what an exception leaves behind
    std::vector<cv::detail::ImageFeatures> features = findFeatures(cancel);
    std::vector<cv::detail::MatchesInfo> pairwise;
    indices.clear();
    // OpenCV does not expect to be asked about no picture at all.
    if (!features.empty()) {
        const bool isMatched = matcher->matchAll(features, pairwise, cancel);
        matcher->collectGarbage();
        if (isMatched)
            indices = cv::detail::leaveBiggestComponent(features, pairwise, kMatchConfidence);
    }
    std::vector<cv::Mat> kept;
    for (const int index : indices)
        kept.push_back(images[static_cast<std::size_t>(index)]);
    images = std::move(kept);
    firstSize = images.empty() ? cv::Size() : images[0].size();
    isLastDrawing = false;
    makeMasks();
    if (images.size() < 2 || (cancel && cancel()))
        return false;

    const cv::Ptr<cv::detail::Estimator> estimator = cv::makePtr<cv::detail::HomographyBasedEstimator>(false);
    if (!(*estimator)(features, pairwise, cameras))
        return false;
    for (auto& camera : cameras)
        camera.R.convertTo(camera.R, CV_32F);
    if (!refineCameras(features, pairwise, cancel))
        return false;
    warpedImageScale = medianFocal(cameras);
    straighten();
    pointAtTheScene();
    status = 1;
    return true;
}

bool PanoramaStitcher::refineCameras(const std::vector<cv::detail::ImageFeatures>& features,
                                     const std::vector<cv::detail::MatchesInfo>& pairwise, const CancelFunction& cancel)
{
    SparseRayAdjuster adjuster(cancel);
    adjuster.setConfThresh(static_cast<double>(kMatchConfidence));
    adjuster.setRefinementMask(cv::Mat::ones(3, 3, CV_8U));
    for (int i = 0; i < kAdjustmentTries; ++i) {
        try {
            if (adjuster(features, pairwise, cameras))
                return true;
        } catch (const SparseRayAdjuster::Hopeless&) {
            continue; // as if it had counted to the last iteration
        } catch (const SparseRayAdjuster::Cancelled&) {
            return false;
        }
    }
    LOG(__orvolog() << LogMessageType::Error << "failed to make more accurate focals prediction");
    return false;
}

void PanoramaStitcher::straighten()
{
    std::vector<cv::Mat> rotations;
    for (const auto& camera : cameras)
        rotations.push_back(camera.R.clone());
    cv::detail::waveCorrect(rotations, cv::detail::WAVE_CORRECT_HORIZ);
    for (std::size_t i = 0; i < cameras.size(); ++i)
        cameras[i].R = rotations[i];
}

// Wave correction takes the plane of the views for the horizon. Views that all look up or down the same way have none:
// they are turned so that their mean looks along the z axis.
void PanoramaStitcher::pointAtTheScene()
{
    std::vector<cv::Vec3f> directions;
    cv::Vec3f sum(0, 0, 0);
    for (const auto& camera : cameras) {
        const cv::Mat& r = camera.R;
        directions.emplace_back(r.at<float>(0, 2), r.at<float>(1, 2), r.at<float>(2, 2));
        sum += directions.back();
    }
    const double length = cv::norm(sum);
    if (!(length > 0.0))
        return;
    const cv::Vec3f mean = sum * (1.0 / length);
    float spread = 0.0f;
    for (const auto& direction : directions)
        spread += static_cast<float>(cv::norm(direction - mean));
    if (!(std::abs(mean[1]) > kSteepPitch && spread / static_cast<float>(cameras.size()) < kNarrowSpread))
        return;
    const cv::Vec3f axis = mean.cross(cv::Vec3f(0, 0, 1));
    const double sine = cv::norm(axis);
    if (!(sine > 0.0))
        return;
    const double angle = std::asin(std::clamp(sine, -1.0, 1.0));
    const cv::Vec3f turn = axis * (angle / sine);
    const cv::Mat correction = rotationOf(turn[0], turn[1], turn[2]);
    for (auto& camera : cameras)
        camera.R = correction * camera.R;
}

cv::Rect PanoramaStitcher::projectionBounds(std::optional<std::int32_t> kind) const
{
    const auto warper = makeWarper(sphereScale(), kind.value_or(warpKind));
    return warper ? warper->outputBounds() : cv::Rect();
}

cv::Rect PanoramaStitcher::roiInOutputPixels()
{
    prepareWarpedImages();
    const double scale = seamScale();
    const auto outputPixels = [scale](int value) { return static_cast<int>(std::ceil(value / scale)); };
    return {outputPixels(resultRoi.x), outputPixels(resultRoi.y), outputPixels(resultRoi.width),
            outputPixels(resultRoi.height)};
}

cv::Size PanoramaStitcher::limitOutputSize(const cv::Size& size)
{
    constexpr double kLongest = kLongestSide;
    const double factor = std::min({1.0, kLongest / size.width, kLongest / size.height});
    return {static_cast<int>(size.width * factor), static_cast<int>(size.height * factor)};
}

void PanoramaStitcher::beginViewAdjust()
{
    viewRotationBase = viewRotation.clone();
    fastRender = true;
}

void PanoramaStitcher::endViewAdjust() { fastRender = false; }

void PanoramaStitcher::setViewShift(const _Point<float>& shift)
{
    const cv::Rect bounds = projectionBounds();
    const float unit = workScale / warpedImageScale;
    const cv::Mat turn = rotationOf(-shift.y * static_cast<float>(bounds.height) * unit,
                                    shift.x * static_cast<float>(bounds.width) * unit, 0.0f);
    viewRotation = turn * viewRotationBase;
}

void PanoramaStitcher::setViewRotation(float angle, const _Point<float>& centre)
{
    const auto warper = makeWarper(sphereScale(), warpKind);
    if (!warper)
        return;
    const cv::Rect bounds = warper->outputBounds();
    const int u = static_cast<int>(static_cast<float>(bounds.x) + static_cast<float>(bounds.width) * centre.x);
    const int v = static_cast<int>(static_cast<float>(bounds.y) + static_cast<float>(bounds.height) * centre.y);
    float x = 0;
    float y = 0;
    float z = 0;
    warper->mapBackward(static_cast<float>(u), static_cast<float>(v), x, y, z);
    const float length = std::sqrt(x * x + y * y + z * z);
    viewRotation = rotationOf(-x * angle / length, -y * angle / length, -z * angle / length) * viewRotationBase;
}

void PanoramaStitcher::resetView()
{
    viewRotation = cv::Mat::eye(3, 3, CV_32F);
    viewRotationBase = cv::Mat::eye(3, 3, CV_32F);
    fastRender = false;
    rotateImageDirty = true;
    prepareRotateImage();
}

void PanoramaStitcher::drawOnceMore()
{
    isLastDrawing = true;
    std::visit([](auto& provider) { provider.dropImages(); }, source);
}

bool PanoramaStitcher::reprojectionNeeded() const
{
    for (int row = 0; row < 3; ++row)
        for (int column = 0; column < 3; ++column)
            if (!isFloatEqual(viewRotation.at<float>(row, column), row == column ? 1.0f : 0.0f))
                return true;
    return warpKind != kSpherical;
}

} // namespace orvo
