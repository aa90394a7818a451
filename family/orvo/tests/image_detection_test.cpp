#include <orvo/image_detection.hpp>
#include <orvo_core/image.hpp>
#include <orvo_image_processing/image_transform.hpp>
#include <orvo_io/image_reader.hpp>

#include <gtest/gtest.h>
#include <opencv2/imgproc.hpp>

#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <numbers>
#include <string>

using namespace orvo;

namespace {

using Picture = _ImageData<PixelRGB<float>>;

constexpr double kDegree = std::numbers::pi / 180.0;

float angleOf(const std::shared_ptr<const Picture>& picture)
{
    const auto image = CreateOrvoImage(picture);
    return ImageDetection().getAutoHorizonAngle(image.get());
}

// The middle of a picture from a camera turned clockwise: the horizon turns counter-clockwise.
std::shared_ptr<const Picture> turned(const Picture& picture, double degrees)
{
    CropDescription crop;
    crop.angle = static_cast<float>(degrees * kDegree);
    const int width = picture.width() * 2 / 3;
    const int height = picture.height() * 2 / 3;
    crop.rect = {(picture.width() - width) / 2, (picture.height() - height) / 2, width, height};
    const TransformComputer computer({{width, height},
                                      {},
                                      {width, height},
                                      ImageTransformType::Affine,
                                      crop.getAffineTransformForCanvas({width, height}),
                                      crop,
                                      0});
    return computer.createTransformedRoi(picture, computer.getWorkingResizeParameters());
}

std::shared_ptr<Picture> pictureOf(const cv::Mat& bgr)
{
    auto picture = std::make_shared<Picture>(_Size<int>(bgr.cols, bgr.rows), ColorProfileType::sRGB());
    for (int y = 0; y < bgr.rows; ++y)
        for (int x = 0; x < bgr.cols; ++x) {
            const cv::Vec3b pixel = bgr.at<cv::Vec3b>(y, x);
            picture->row(y)[x] = {pixel[2] / 255.0f, pixel[1] / 255.0f, pixel[0] / 255.0f};
        }
    return picture;
}

// A lake under a noisy sky: one level line, with bushes in front.
cv::Mat lake()
{
    cv::Mat scene(800, 1200, CV_8UC3, cv::Scalar(210, 180, 150));
    scene.rowRange(430, 800).setTo(cv::Scalar(120, 110, 60));
    cv::RNG random(4);
    for (int i = 0; i < 60; ++i)
        cv::ellipse(scene, {random.uniform(0, 1200), random.uniform(600, 800)},
                    {random.uniform(8, 40), random.uniform(8, 30)}, random.uniform(0, 180), 0, 360,
                    cv::Scalar(random.uniform(20, 60), random.uniform(60, 120), random.uniform(20, 90)), cv::FILLED,
                    cv::LINE_AA);
    cv::Mat noise(scene.size(), CV_8UC3);
    random.fill(noise, cv::RNG::NORMAL, cv::Scalar::all(8), cv::Scalar::all(4));
    scene += noise;
    cv::GaussianBlur(scene, scene, cv::Size(), 0.7); // real lenses are no sharper
    return scene;
}

// Houses whose roofs and bases recede to both sides, with upright edges; nothing level.
cv::Mat street()
{
    cv::Mat scene(800, 1200, CV_8UC3, cv::Scalar(230, 220, 200));
    cv::RNG random(9);
    for (int i = 0; i < 7; ++i) {
        const int left = 20 + i * 170;
        const int slope = i < 3 ? 30 : -30;
        const std::vector<cv::Point> house{
            {left, 300 - slope}, {left + 140, 300}, {left + 140, 620}, {left, 620 + slope}};
        cv::fillConvexPoly(scene, house,
                           cv::Scalar(random.uniform(40, 200), random.uniform(40, 200), random.uniform(40, 200)),
                           cv::LINE_AA);
    }
    return scene;
}

struct RealPicture
{
    std::string path;
};

void PrintTo(const RealPicture& picture, std::ostream* out) { *out << picture.path; }

class HorizonOfRealPictures : public testing::TestWithParam<RealPicture>
{};

} // namespace

TEST(Horizon, OfALakeIsFoundUpToFifteenDegrees)
{
    const auto picture = pictureOf(lake());
    for (const double degrees : {-15.0, -9.5, -4.0, -1.0, 0.0, 0.7, 3.0, 8.0, 15.0})
        EXPECT_NEAR(static_cast<double>(angleOf(turned(*picture, degrees))) / kDegree, -degrees, 0.5);
}

TEST(Horizon, OfAStreetFollowsItsUprights)
{
    const auto picture = pictureOf(street());
    for (const double degrees : {-15.0, -6.0, 0.0, 2.5, 15.0})
        EXPECT_NEAR(static_cast<double>(angleOf(turned(*picture, degrees))) / kDegree, -degrees, 0.5);
}

TEST(Horizon, OfNothingIsLevel)
{
    EXPECT_EQ(ImageDetection().getAutoHorizonAngle(nullptr), 0.0f);
    EXPECT_EQ(angleOf(std::make_shared<Picture>(_Size<int>(300, 200), PixelRGB<float>{0.5f, 0.5f, 0.5f}, nullptr)),
              0.0f);
    EXPECT_EQ(angleOf(std::make_shared<Picture>(_Size<int>(1, 1), PixelRGB<float>{}, nullptr)), 0.0f);
    cv::Mat noise(400, 600, CV_8UC3);
    cv::RNG(3).fill(noise, cv::RNG::UNIFORM, 0, 255);
    EXPECT_EQ(angleOf(pictureOf(noise)), 0.0f);
}

TEST_P(HorizonOfRealPictures, TurnsWithThePicture)
{
    const char* const data = std::getenv("ORVO_TEST_DATA");
    if (data == nullptr)
        GTEST_SKIP() << "ORVO_TEST_DATA names no folder of real pictures";
    const auto image = ImageReader::instance().open({std::filesystem::path(data) / GetParam().path, {}}, {},
                                                    ImageReaderOpenFlag::Upright, nullptr, {}, -1);
    ASSERT_TRUE(image);
    const auto picture = image->imageData(scaleSizeToMax(image->size(), 1600), {}, true);
    const double level = static_cast<double>(angleOf(turned(*picture, 0.0))) / kDegree;
    EXPECT_LT(std::abs(level), 3.0);
    for (const double degrees : {-15.0, -10.0, -5.0, -2.0, 2.0, 5.0, 10.0, 15.0})
        if (std::abs(level - degrees) < 17.0) {
            EXPECT_NEAR(static_cast<double>(angleOf(turned(*picture, degrees))) / kDegree, level - degrees, 0.5);
        }
}

INSTANTIATE_TEST_SUITE_P(All, HorizonOfRealPictures,
                         testing::Values(RealPicture{"single/lake_horizon/lake_horizon.jpg"},
                                         RealPicture{"single/skiers/skiers.jpg"}));
