#include "panorama/stitcher_registration_adjuster.hpp"

#include <scenes/sphere_scene.hpp>

#include <gtest/gtest.h>
#include <opencv2/stitching/detail/camera.hpp>
#include <opencv2/stitching/detail/matchers.hpp>

#include <limits>

using namespace orvo;

namespace {

constexpr int kSide = 300;
constexpr double kFocal = 300.0;

struct Matched
{
    std::vector<cv::detail::ImageFeatures> features;
    std::vector<cv::detail::MatchesInfo> pairwise;
    std::vector<cv::detail::CameraParams> cameras; // off the truth by some degrees and percent
};

cv::Matx33d matrixOf(const scenes::Rotation& rotation) { return cv::Matx33d(rotation.data()); }

// The matches of both cameras on the first one's grid, with noise and some outliers.
cv::detail::MatchesInfo matchesOf(const scenes::SphereView& a, const scenes::SphereView& b,
                                  cv::detail::ImageFeatures& seenByA, cv::detail::ImageFeatures& seenByB, cv::RNG& rng)
{
    cv::detail::MatchesInfo info;
    const cv::Matx33d turn = matrixOf(b.rotation).t() * matrixOf(a.rotation);
    for (int y = 12; y < kSide; y += 24)
        for (int x = 12; x < kSide; x += 24) {
            const cv::Vec3d ray = turn * cv::Vec3d(x - kSide / 2, y - kSide / 2, kFocal);
            const cv::Point2d other(kFocal * ray[0] / ray[2] + kSide / 2, kFocal * ray[1] / ray[2] + kSide / 2);
            if (ray[2] <= 0.0 || !cv::Rect2d(0, 0, kSide, kSide).contains(other))
                continue;
            info.matches.emplace_back(static_cast<int>(seenByA.keypoints.size()),
                                      static_cast<int>(seenByB.keypoints.size()), 0.0f);
            seenByA.keypoints.emplace_back(static_cast<float>(x), static_cast<float>(y), 1.0f);
            seenByB.keypoints.emplace_back(static_cast<float>(other.x + rng.gaussian(0.3)),
                                           static_cast<float>(other.y + rng.gaussian(0.3)), 1.0f);
            const bool isInlier = info.matches.size() % 7 != 0;
            info.inliers_mask.push_back(isInlier ? 1 : 0);
            info.num_inliers += isInlier ? 1 : 0;
        }
    info.confidence = info.num_inliers > 10 ? 1.0 : 0.0;
    if (info.confidence > 0.0)
        info.H = cv::Mat::eye(3, 3, CV_64F); // only checked for presence
    return info;
}

Matched ring(int count, double pitch)
{
    Matched made;
    cv::RNG rng(5);
    const auto views = scenes::rowOfViews(count, 360.0 / count, pitch, scenes::SphereView(), 1.0, 9);
    made.features.resize(views.size());
    made.pairwise.resize(views.size() * views.size());
    for (std::size_t i = 0; i < views.size(); ++i) {
        made.features[i].img_size = {kSide, kSide};
        cv::detail::CameraParams camera;
        camera.focal = kFocal * (1.0 + rng.uniform(-0.03, 0.03));
        cv::Mat(matrixOf(views[i].rotation)).convertTo(camera.R, CV_32F);
        camera.t = cv::Mat::zeros(3, 1, CV_32F);
        made.cameras.push_back(camera);
        for (std::size_t j = i + 1; j < views.size(); ++j) {
            auto info = matchesOf(views[i], views[j], made.features[i], made.features[j], rng);
            made.pairwise[j * views.size() + i] = info;
            made.pairwise[i * views.size() + j] = std::move(info);
        }
    }
    return made;
}

template <typename Adjuster>
Adjuster prepared()
{
    Adjuster adjuster;
    adjuster.setConfThresh(0.5);
    adjuster.setRefinementMask(cv::Mat::ones(3, 3, CV_8U));
    return adjuster;
}

} // namespace

TEST(SparseRayAdjuster, TakesTheSameStepsToTheLastBit)
{
    // Few pairs, many pairs, and so many pictures that OpenCV multiplies their derivatives in blocks.
    for (const auto& [count, pitch] : {std::pair(8, 0.0), std::pair(9, 70.0), std::pair(26, -40.0)}) {
        const Matched ringOfViews = ring(count, pitch);
        auto sparse = ringOfViews.cameras;
        auto dense = ringOfViews.cameras;
        ASSERT_TRUE(prepared<SparseRayAdjuster>()(ringOfViews.features, ringOfViews.pairwise, sparse));
        ASSERT_TRUE(prepared<cv::detail::BundleAdjusterRay>()(ringOfViews.features, ringOfViews.pairwise, dense));
        for (std::size_t i = 0; i < dense.size(); ++i) {
            EXPECT_EQ(sparse[i].focal, dense[i].focal) << count << " views, camera " << i;
            EXPECT_EQ(cv::norm(sparse[i].R, dense[i].R, cv::NORM_INF), 0.0) << count << " views, camera " << i;
            EXPECT_NEAR(dense[i].focal, kFocal, 0.01 * kFocal) << count << " views, camera " << i;
        }
    }
}

TEST(SparseRayAdjuster, EndsAtTheFirstParameterThatIsNoNumber)
{
    Matched spoiled = ring(8, 0.0);
    spoiled.cameras[3].focal = std::numeric_limits<double>::quiet_NaN();
    auto cameras = spoiled.cameras;
    EXPECT_THROW(prepared<SparseRayAdjuster>()(spoiled.features, spoiled.pairwise, cameras),
                 SparseRayAdjuster::Hopeless);
    EXPECT_EQ(cameras[0].focal, spoiled.cameras[0].focal);
    auto adjuster = prepared<cv::detail::BundleAdjusterRay>();
    adjuster.setTermCriteria(
        {cv::TermCriteria::COUNT, 20, 0.0}); // the result after all 1000 takes proportionally longer
    EXPECT_FALSE(adjuster(spoiled.features, spoiled.pairwise, cameras));
}
