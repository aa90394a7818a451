// Real sets: matching pictures register, others are skipped.
#include "panorama/compute_device.hpp"
#include "panorama_truth.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <string>

using namespace orvo;
using namespace orvo::test;
using testing::ElementsAre;

namespace {

struct RealSet
{
    std::string name;
    std::size_t used;
    double widthDegrees; // of the content
    double heightDegrees;
};

void PrintTo(const RealSet& set, std::ostream* out) { *out << set.name; }

class RealPanoramas : public testing::TestWithParam<RealSet>
{
protected:
    PanoSource source;

    void SetUp() override
    {
        const char* const data = std::getenv("ORVO_TEST_DATA");
        if (data == nullptr)
            GTEST_SKIP() << "ORVO_TEST_DATA is not set to a folder of real pictures";
        forceCpu() = true;
        for (const auto& entry :
             std::filesystem::directory_iterator(std::filesystem::path(data) / "panorama" / GetParam().name))
            if (entry.path().extension() == ".jpg" || entry.path().extension() == ".JPG")
                source.files.push_back(entry.path());
    }
    void TearDown() override { forceCpu() = false; }
};

} // namespace

TEST_P(RealPanoramas, RegisterAndCompose)
{
    PanoramaStitcher stitcher(source);
    std::vector<float> reported;
    stitcher.setLoadCallback([&](float share) { reported.push_back(share); });
    ASSERT_TRUE(stitcher.loadImages(never));
    EXPECT_EQ(reported.size(), source.files.size());
    EXPECT_EQ(stitcher.getStatus(), 1);
    ASSERT_EQ(stitcher.usedImages().size(), GetParam().used);
    for (std::size_t i = 0; i < GetParam().used; ++i)
        EXPECT_EQ(stitcher.usedIndices()[i], static_cast<int>(i)) << "the unrelated picture is the last of its set";

    const cv::Rect sphere = stitcher.projectionBounds();
    const double degreesPerUnit = 360.0 / sphere.width;
    const cv::Rect content = stitcher.roiInOutputPixels();
    EXPECT_NEAR(content.width * degreesPerUnit, GetParam().widthDegrees, 0.12 * GetParam().widthDegrees);
    EXPECT_NEAR(content.height * degreesPerUnit, GetParam().heightDegrees, 0.12 * GetParam().heightDegrees);

    const double shrink = 900.0 / content.width;
    const Panorama panorama = stitcher.makePanorama({content.x, content.y, content.width, content.height},
                                                    {900, static_cast<int>(content.height * shrink)}, true, never);
    ASSERT_NE(panorama.image, nullptr);
    const cv::Mat mask = maskOf(*panorama.mask);
    EXPECT_GT(cv::countNonZero(mask), mask.rows * mask.cols / 2);
    EXPECT_GT(cv::mean(matrixOf(*panorama.image), mask)[1], 0.1);
}

INSTANTIATE_TEST_SUITE_P(Sets, RealPanoramas,
                         testing::Values(RealSet{"weir", 3, 53, 18}, RealSet{"weir_stranger", 3, 53, 18},
                                         RealSet{"ledge_vertical", 3, 61, 50}, RealSet{"roof_exposure", 2, 50, 36},
                                         RealSet{"tower_library", 8, 132, 66}, RealSet{"deck_360", 16, 360, 67}),
                         [](const auto& set) { return set.param.name; });
