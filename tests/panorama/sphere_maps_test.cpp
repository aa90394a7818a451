#include "panorama/projection_warpers.hpp"
#include "panorama/sphere_maps.hpp"

#include <gtest/gtest.h>
#include <opencv2/calib3d.hpp>
#include <opencv2/core.hpp>

#include <cstring>

using namespace orvo;

namespace {

const cv::Rect kOut(-40, 17, 613, 203); // primes: no multiples of strips or vectors
constexpr float kScale = 800.0f;

// The maps of a planet seen from aside, kept or computed for each use.
struct Planet
{
    explicit Planet(int keptPixels) : maps(turned(*warper), kOut, {1.7f, 1.9f}, {-300.0f, -250.0f}, keptPixels) {}

    static const PanoramaWarper& turned(PanoramaWarper& warper)
    {
        cv::Mat rotation;
        cv::Rodrigues(cv::Vec3f(0.1f, 0.3f, -0.05f), rotation);
        warper.setIntermediate(rotation, makeWarper(kScale, 0));
        return warper;
    }

    // All rows of both maps, from calls for ranges of rows.
    [[nodiscard]] std::pair<cv::Mat, cv::Mat> whole() const
    {
        cv::Mat x(kOut.size(), CV_32FC1, cv::Scalar(0));
        cv::Mat y = x.clone();
        for (const cv::Range& rows : {cv::Range(0, 5), cv::Range(5, 5), cv::Range(5, kOut.height)})
            maps.forEachStrip(rows, [&](const cv::Range& strip, const cv::Mat& xs, const cv::Mat& ys) {
                xs.copyTo(x.rowRange(strip));
                ys.copyTo(y.rowRange(strip));
            });
        return {x, y};
    }

    std::shared_ptr<PanoramaWarper> warper = makeWarper(kScale, 4);
    SphereMaps maps;
};

bool sameBytes(const cv::Mat& a, const cv::Mat& b)
{
    return a.size() == b.size() && std::memcmp(a.data, b.data, a.total() * a.elemSize()) == 0;
}

} // namespace

TEST(SphereMaps, StripsArePointsOfTheWarper)
{
    const Planet planet(0);
    const auto [x, y] = planet.whole();
    for (const cv::Point& pixel : {cv::Point(0, 0), cv::Point(612, 202), cv::Point(301, 6), cv::Point(17, 100)}) {
        float toX = 0;
        float toY = 0;
        planet.warper->mapToIntermediate(static_cast<float>(kOut.x + pixel.x) * 1.7f - 300.0f,
                                         static_cast<float>(kOut.y + pixel.y) * 1.9f - 250.0f, toX, toY);
        EXPECT_NEAR(x.at<float>(pixel), toX, 0.5f) << pixel; // single points are inaccurate near the poles
        EXPECT_NEAR(y.at<float>(pixel), toY, 0.5f) << pixel;
    }
}

TEST(SphereMaps, KeptMapsAreThoseComputedForEachUse)
{
    Planet kept(kOut.area());
    Planet computed(kOut.area() - 1);
    EXPECT_TRUE(sameBytes(kept.whole().first, computed.whole().first));
    EXPECT_TRUE(sameBytes(kept.whole().second, computed.whole().second));
    for (Planet* const planet : {&kept, &computed})
        planet->maps.moveInto({100, 50, 900, 700}, {1350, 350}, {11, 22});
    const auto [x, y] = computed.whole();
    EXPECT_TRUE(sameBytes(kept.whole().first, x));
    EXPECT_TRUE(sameBytes(kept.whole().second, y));
    const auto [fromX, fromY] = Planet(0).whole();
    const cv::Point pixel(301, 100);
    EXPECT_FLOAT_EQ(x.at<float>(pixel), (fromX.at<float>(pixel) - 100.0f) * 1.5f - 11.0f);
    EXPECT_FLOAT_EQ(y.at<float>(pixel), (fromY.at<float>(pixel) - 50.0f) * 0.5f - 22.0f);
}
