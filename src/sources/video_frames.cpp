#include "sources/video_frames.hpp"

#include "sources/frame_stepper.hpp"
#include "sources/key_frames.hpp"
#include "sources/own_random_numbers.hpp"

#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#include <opencv2/stitching/detail/matchers.hpp>
#include <opencv2/xfeatures2d/nonfree.hpp>

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <optional>
#include <string>
#include <utility>

namespace orvo {
namespace {

constexpr double kLookedAtPerSecond = 10.0;
// The walk ends with more key frames than this. The last one was the pending one, so none follows it.
constexpr std::size_t kMostKeyFramesToGoOn = 35;
constexpr std::size_t kUsualKeyFrames = 36;
constexpr float kFeaturePixels = 600000.0f;

// SURF: the threshold of the Hessian, octaves and layers; 64 numbers a descriptor, with orientation.
constexpr double kHessianThreshold = 100.0;
constexpr int kOctaves = 4;
constexpr int kOctaveLayers = 3;
constexpr float kMatchConfidence = 0.65f;
constexpr int kFewestMatches = 6;

// 8 bits to full scale 16383, with half a step so that white maps to full scale: 16383.5 / 255.
constexpr double kWorkingScale = 64.24901960784314;

// Features at working scale, and their matches between two frames.
class FeatureMatching
{
public:
    // The working scale is that of the first frame.
    explicit FeatureMatching(const cv::Mat& first)
        : scale(std::min(1.0f, std::sqrt(kFeaturePixels / static_cast<float>(first.rows * first.cols)))),
          detector(cv::xfeatures2d::SURF::create(kHessianThreshold, kOctaves, kOctaveLayers, false, false)),
          matcher(false, kMatchConfidence, kFewestMatches, kFewestMatches, DBL_MAX)
    {}

    // Also returns the size at working scale.
    cv::detail::ImageFeatures find(const cv::Mat& frame, cv::Size& smallSize) const
    {
        cv::Mat small;
        cv::resize(frame, small, cv::Size(), scale, scale, cv::INTER_AREA);
        smallSize = small.size();
        cv::detail::ImageFeatures features;
        cv::detail::computeImageFeatures(detector, small, features, cv::noArray());
        return features;
    }

    cv::detail::MatchesInfo match(const cv::detail::ImageFeatures& key, const cv::detail::ImageFeatures& candidate)
    {
        cv::detail::MatchesInfo matches;
        matcher(key, candidate, matches);
        return matches;
    }

private:
    float scale;
    cv::Ptr<cv::Feature2D> detector;
    cv::detail::BestOf2NearestMatcher matcher;
};

// The key frames found so far.
struct Selection
{
    std::vector<cv::Mat> keyFrames; // 8-bit
    std::vector<cv::detail::ImageFeatures> keyFeatures;
    cv::Mat pending; // the last frame that still overlaps well; a later one replaces it
    cv::detail::ImageFeatures pendingFeatures;

    void add(cv::Mat frame, cv::detail::ImageFeatures features)
    {
        keyFrames.push_back(std::move(frame));
        keyFeatures.push_back(std::move(features));
    }
    void keepPending()
    {
        if (!pending.empty())
            add(std::exchange(pending, cv::Mat()), std::exchange(pendingFeatures, {}));
    }
};

void toWorkingColour(std::vector<cv::Mat>& frames)
{
    for (cv::Mat& frame : frames) {
        cv::Mat converted;
        frame.convertTo(converted, CV_16SC3, kWorkingScale, 0.0);
        frame = std::move(converted); // frees each 8-bit frame before the next is converted
    }
}

} // namespace

std::vector<cv::Mat> selectVideoFrames(const std::filesystem::path& file, std::uint64_t start, std::uint64_t end,
                                       const std::function<void(float)>& progress,
                                       const std::function<bool()>& canceled)
{
    return selectKeyFrames(file, start, end, RunControl(canceled, progress));
}

std::vector<cv::Mat> selectKeyFrames(const std::filesystem::path& file, std::uint64_t start, std::uint64_t end,
                                     const RunControl& run)
{
    std::optional<MFCapture> capture = openCapture(file);
    if (!capture) {
        details::stateFailure({FailureKind::UnreadableFile, file, "expected a video that can be decoded"});
        return {};
    }
    const float fps = capture->getFps();
    if (run.cancelled())
        return {};
    const auto step = static_cast<std::int32_t>(fps / kLookedAtPerSecond);
    // The end may be far beyond the file; progress then counts to the end of the file, but the counter of the capture
    // gets ahead of the frames, and 1 is reported once, at the end.
    constexpr float kAlmostDone = 0.99f;
    const std::uint64_t count = capture->frameCount();
    const bool isBeyond = count > start && count < end;
    const std::uint64_t span = (isBeyond ? count : end) - start;
    const float most = isBeyond ? kAlmostDone : 1.0f;
    const OwnRandomNumbers ownRandomNumbers; // a walk finds the same frames every time

    cv::Mat frame;
    capture->readFrame(start, frame);
    if (frame.empty()) // OpenCV throws below, with an assertion that names neither
        details::stateFailure({FailureKind::UnreadableFile, file,
                               "expected frame " + std::to_string(start) + ", found none that can be read"});
    FeatureMatching matching(frame);
    Selection selection;
    selection.keyFrames.reserve(kUsualKeyFrames);
    cv::Size smallSize;
    cv::detail::ImageFeatures features = matching.find(frame, smallSize);
    selection.add(std::move(frame), std::move(features));

    KeyFrameJudge judge;
    FrameStepper stepper(std::move(*capture), step, end);
    for (;;) {
        if (run.cancelled())
            return {};
        auto [candidate, index] = stepper.next();
        if (candidate.empty() || selection.keyFrames.size() > kMostKeyFramesToGoOn)
            break;
        features = matching.find(candidate, smallSize);
        if (run.cancelled())
            return {};
        if (features.keypoints.empty())
            continue;
        const cv::detail::MatchesInfo matches = matching.match(selection.keyFeatures.back(), features);
        if (run.cancelled())
            return {};
        run.report(std::min(most, static_cast<float>(index - start) / static_cast<float>(span)));
        if (judge.acceptCandidate(matches, smallSize, selection.keyFeatures.back(), features)) {
            selection.pending = std::move(candidate); // has its own memory, so needs no copy
            selection.pendingFeatures = std::move(features);
        } else {
            selection.keepPending(); // the rejected one is not tried against the new key frame
        }
    }
    run.report(1.0f);
    selection.keepPending();
    toWorkingColour(selection.keyFrames);
    return std::move(selection.keyFrames);
}

std::vector<cv::Mat> readCompositionFrames(const std::filesystem::path& file, const std::vector<std::uint64_t>& frames)
{
    if (frames.empty())
        return {};
    std::optional<MFCapture> capture = openCapture(file);
    if (!capture)
        return {};
    std::vector<cv::Mat> result(frames.size());
    for (std::size_t i = 0; i < frames.size(); ++i)
        capture->readFrame(frames[i], result[i]);
    toWorkingColour(result);
    return result;
}

} // namespace orvo
