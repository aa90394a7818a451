// The second stage: cameras of the pictures that fit together, and the direction of the panorama.
#include "panorama/consistent_pairs.hpp"
#include "panorama/match_confidence.hpp"
#include "panorama/panorama_stitcher.hpp"
#include "panorama/registration_shares.hpp"
#include "panorama/rotation_vector.hpp"
#include "panorama/stitcher_registration_adjuster.hpp"
#include "sources/own_random_numbers.hpp"

#include <orvo_logger/logstream.hpp>

#include <opencv2/stitching/detail/motion_estimators.hpp>

#include <algorithm>
#include <cmath>
#include <string>
#include <utility>

namespace orvo {
namespace {

// Bundle adjustment starts from a rough guess and may need to continue after a failure.
constexpr int kAdjustmentTries = 4;

// Views count as far from the horizon beyond about 45 degrees of pitch, if they face about the same direction.
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

} // namespace

// Pictures may be used in full; of a frame that the user added by hand only the rectangle that the user drew.
// `pictures` counts all, those that fit no other included: the frames are the last of them.
void PanoramaStitcher::makeMasks(std::size_t pictures)
{
    const std::size_t base = pictures - std::min(compositionFrameCount(), pictures);
    registered.masks.clear();
    registered.frameCount = 0;
    cv::Mat whole;
    for (std::size_t i = 0; i < registered.images.size(); ++i) {
        const auto index = static_cast<std::size_t>(registered.indices[i]);
        if (index < base) {
            // The masks of pictures are never written, so pictures of one size share one.
            if (whole.size() != registered.images[i].size())
                whole = cv::Mat(registered.images[i].size(), CV_8UC1, cv::Scalar(255));
            registered.masks.push_back(whole);
            continue;
        }
        ++registered.frameCount;
        const _Rect<int> part = std::get<PanoramaVideoProvider>(source).getCompositionRects()[index - base];
        cv::Mat mask = cv::Mat::zeros(registered.images[i].size(), CV_8UC1);
        const cv::Rect inside =
            cv::Rect(part.x, part.y, part.width, part.height) & cv::Rect(cv::Point(), registered.images[i].size());
        if (!inside.empty())
            mask(inside).setTo(255);
        registered.masks.push_back(std::move(mask));
    }
}

bool PanoramaStitcher::estimateCameras(const std::vector<cv::Mat>& sources, const CancelFunction& cancel)
{
    const RunControl run(cancel, workProgress);
    const bool isRegistered = registerPictures(sources, run);
    if (run.wasCancelled())
        details::stateFailure(cancelledFailure());
    else if (!isRegistered)
        details::stateFailure({FailureKind::UnfittingPictures,
                               {},
                               "the pictures do not fit together: fewer than two of them overlap enough; "
                               "neighbours should overlap by a third"});
    return isRegistered;
}

bool PanoramaStitcher::registerPictures(const std::vector<cv::Mat>& sources, const RunControl& run)
{
    const OwnRandomNumbers ownRandomNumbers; // the same pictures give the same cameras every time
    registered.status = 2;                   // until it succeeds: also after an exception
    registered.masks.clear();
    registered.cameras.clear();
    registered.images = sources;
    failed = {};
    isLastDrawing = false;

    std::vector<cv::detail::ImageFeatures> features = findFeatures(run);
    std::vector<cv::detail::MatchesInfo> pairwise;
    if (!matchFeatures(features, pairwise, run))
        pairwise.clear();
    FailedRegistration started{sources, features, pairwise};
    keepBiggestComponent(features, pairwise);
    makeMasks(sources.size());
    if (registered.images.size() < 2 || run.cancelled())
        return false;

    const cv::Ptr<cv::detail::Estimator> estimator = cv::makePtr<cv::detail::HomographyBasedEstimator>(false);
    if (!(*estimator)(features, pairwise, registered.cameras)) {
        failed = std::move(started);
        return false;
    }
    for (auto& camera : registered.cameras)
        camera.R.convertTo(camera.R, CV_32F);
    if (!refineCameras(features, pairwise, run)) {
        if (!run.wasCancelled())
            failed = std::move(started);
        return false;
    }
    finishRegistration();
    return true;
}

void PanoramaStitcher::finishRegistration()
{
    registered.warpedImageScale = medianFocal(registered.cameras);
    straighten();
    pointAtTheScene();
    registered.status = 1;
}

bool PanoramaStitcher::registerWithoutContradictions(const CancelFunction& cancel)
{
    const RunControl run(cancel, workProgress);
    const OwnRandomNumbers ownRandomNumbers;
    const bool isPlaced = placeConsistent(run);
    if (run.wasCancelled())
        details::stateFailure(cancelledFailure());
    else if (!isPlaced)
        details::stateFailure({FailureKind::UnfittingPictures,
                               {},
                               "the pictures contradict each other: parts that look alike match at several places; "
                               "neighbours should overlap by a third"});
    return isPlaced;
}

bool PanoramaStitcher::placeConsistent(const RunControl& run)
{
    FailedRegistration again = std::exchange(failed, {});
    const auto views = findConsistentViews(again.features, again.pairwise, run);
    if (!views)
        return false;
    int contradictions = 0;
    for (std::size_t i = 0; i < again.pairwise.size(); ++i) {
        auto& pair = again.pairwise[i];
        if (views->agrees[i] || !(pair.confidence > static_cast<double>(kMatchConfidence)))
            continue;
        pair.confidence = 0.0;
        ++contradictions;
    }
    registered.images = again.sources;
    registered.cameras.clear();
    keepBiggestComponent(again.features, again.pairwise);
    makeMasks(again.sources.size());
    if (registered.images.size() < 2)
        return false;
    for (std::size_t i = 0; i < registered.images.size(); ++i) {
        cv::detail::CameraParams camera;
        camera.focal = views->focal;
        camera.ppx = 0.5 * again.features[i].img_size.width;
        camera.ppy = 0.5 * again.features[i].img_size.height;
        cv::Mat(views->rotations[static_cast<std::size_t>(registered.indices[i])]).convertTo(camera.R, CV_32F);
        registered.cameras.push_back(camera);
    }
    const std::vector<cv::detail::CameraParams> rough = registered.cameras;
    if (!refineCameras(again.features, again.pairwise, run)) {
        if (run.wasCancelled())
            return false;
        registered.cameras = rough; // they agree, if only to a few pixels
    }
    constexpr int kEntriesOfAPair = 2;
    if (contradictions > 0)
        details::logWarning(std::to_string(contradictions / kEntriesOfAPair) +
                            " pairs of pictures match at parts that look alike and contradict the others; they were "
                            "left out, so the result should be checked");
    finishRegistration();
    return true;
}

bool PanoramaStitcher::refineCameras(const std::vector<cv::detail::ImageFeatures>& features,
                                     const std::vector<cv::detail::MatchesInfo>& pairwise, const RunControl& run)
{
    const RunControl adjusting([&run] { return run.cancelled(); },
                               [&run](float share) { run.report(kMatched + (1.0f - kMatched) * share); });
    SparseRayAdjuster adjuster(adjusting);
    adjuster.setConfThresh(static_cast<double>(kMatchConfidence));
    adjuster.setRefinementMask(cv::Mat::ones(3, 3, CV_8U));
    for (int i = 0; i < kAdjustmentTries; ++i) {
        try {
            if (adjuster(features, pairwise, registered.cameras))
                return true;
        } catch (const SparseRayAdjuster::Hopeless&) {
            continue;                   // as if it had reached the last iteration
        } catch (const FailureError&) { // cancelled
            return false;
        }
    }
    LOG(__orvolog() << LogMessageType::Error << "failed to make more accurate focals prediction");
    return false;
}

void PanoramaStitcher::straighten()
{
    std::vector<cv::Mat> rotations;
    for (const auto& camera : registered.cameras)
        rotations.push_back(camera.R.clone());
    cv::detail::waveCorrect(rotations, cv::detail::WAVE_CORRECT_HORIZ);
    for (std::size_t i = 0; i < registered.cameras.size(); ++i)
        registered.cameras[i].R = rotations[i];
}

// Wave correction uses the plane of the views as the horizon. Views that all face up or down in the same direction have
// none: they are rotated so that their mean faces along the z axis.
void PanoramaStitcher::pointAtTheScene()
{
    std::vector<cv::Vec3f> directions;
    cv::Vec3f sum(0, 0, 0);
    for (const auto& camera : registered.cameras) {
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
    if (!(std::abs(mean[1]) > kSteepPitch && spread / static_cast<float>(registered.cameras.size()) < kNarrowSpread))
        return;
    const cv::Vec3f axis = mean.cross(cv::Vec3f(0, 0, 1));
    const double sine = cv::norm(axis);
    if (!(sine > 0.0))
        return;
    const double angle = std::asin(std::clamp(sine, -1.0, 1.0));
    const cv::Vec3f turn = axis * (angle / sine);
    const cv::Mat correction = rotationOf(turn[0], turn[1], turn[2]);
    for (auto& camera : registered.cameras)
        camera.R = correction * camera.R;
}

std::pair<cv::Mat, cv::Mat> PanoramaStitcher::fullSizeCamera(std::size_t index) const
{
    cv::Mat k;
    registered.cameras[index].K().convertTo(k, CV_32F);
    for (const auto& [row, column] : {std::pair(0, 0), std::pair(0, 2), std::pair(1, 1), std::pair(1, 2)})
        k.at<float>(row, column) /= registered.workScale;
    return {k, registered.cameras[index].R.clone()};
}

} // namespace orvo
