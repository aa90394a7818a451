// The first stage: features of each picture, and which pictures fit together.
#include "panorama/match_confidence.hpp"
#include "panorama/panorama_stitcher.hpp"
#include "panorama/registration_shares.hpp"

#include <opencv2/imgproc.hpp>
#include <opencv2/stitching/detail/motion_estimators.hpp>
#include <opencv2/xfeatures2d/nonfree.hpp>

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <utility>

namespace orvo {
namespace {

// Limit of pixels for feature detection: more cost time and add matches that do not move the cameras.
constexpr double kWorkPixels = 600000.0;
constexpr double kWorkTo8Bit = 0.015564439832758568; // 255 / 16383.5

constexpr double kSurfHessian = 100.0;
constexpr int kSurfOctaves = 4;
constexpr int kSurfLayers = 3;

constexpr int kFewestMatches = 6;
// Pairs that match suspiciously well (the same picture twice) are not discarded.
constexpr double kNoConfidenceLimit = DBL_MAX;

} // namespace

std::vector<cv::detail::ImageFeatures> PanoramaStitcher::findFeatures(const RunControl& run)
{
    cv::Ptr<cv::Feature2D>& finder = featureFinding.finder;
    if (finder.empty())
        finder = cv::xfeatures2d::SURF::create(kSurfHessian, kSurfOctaves, kSurfLayers, false, false);
    float& workScale = registered.workScale;
    workScale = -1.0f;
    std::vector<cv::detail::ImageFeatures> features;
    for (const cv::Mat& image : registered.images) {
        if (image.empty())
            continue;
        if (run.cancelled())
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
        run.report(kFeaturesFound * static_cast<float>(features.size()) / static_cast<float>(registered.images.size()));
    }
    return features;
}

// False if cancelled.
bool PanoramaStitcher::matchFeatures(const std::vector<cv::detail::ImageFeatures>& features,
                                     std::vector<cv::detail::MatchesInfo>& pairwise, const RunControl& run)
{
    cv::Ptr<CancellableMatcher>& matcher = featureFinding.matcher;
    if (matcher.empty())
        matcher = cv::makePtr<CancellableMatcher>(false, kMatchConfidence, kFewestMatches, kFewestMatches,
                                                  kNoConfidenceLimit);
    if (features.empty()) // OpenCV does not expect an empty list
        return true;
    const RunControl matching(
        [&run] { return run.cancelled(); },
        [&run](float share) { run.report(kFeaturesFound + (kMatched - kFeaturesFound) * share); });
    const bool isMatched = matcher->matchAll(features, pairwise, matching);
    matcher->collectGarbage();
    return isMatched;
}

// Keeps the pictures that fit together, and their features and matches.
void PanoramaStitcher::keepBiggestComponent(std::vector<cv::detail::ImageFeatures>& features,
                                            std::vector<cv::detail::MatchesInfo>& pairwise)
{
    registered.indices.clear();
    if (!pairwise.empty())
        registered.indices = cv::detail::leaveBiggestComponent(features, pairwise, kMatchConfidence);
    std::vector<cv::Mat> kept;
    for (const int index : registered.indices)
        kept.push_back(registered.images[static_cast<std::size_t>(index)]);
    registered.images = std::move(kept);
    registered.firstSize = registered.images.empty() ? cv::Size() : registered.images[0].size();
}

} // namespace orvo
