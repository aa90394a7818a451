#include <orvo/bracket_exposure.hpp>

#include <gmock/gmock.h>

#include <limits>
#include <memory>

namespace {

using orvo::ImageMetadata;
using testing::ElementsAre;
using testing::FloatNear;

struct Frame
{
    int name = 0;
    std::shared_ptr<const ImageMetadata> metadata;
    bool isGhostReference = false;
    float ev = 99.0f;
};

std::shared_ptr<ImageMetadata> exposed(float seconds, float aperture, float iso, float offset = 0.0f)
{
    auto metadata = std::make_shared<ImageMetadata>();
    metadata->shutterSeconds = seconds;
    metadata->aperture = aperture;
    metadata->isoSpeed = iso;
    metadata->exposureOffset = offset;
    return metadata;
}

std::vector<int> names(const std::vector<Frame>& frames)
{
    std::vector<int> result;
    for (const Frame& frame : frames)
        result.push_back(frame.name);
    return result;
}

constexpr float kRounding = 1e-5f;

TEST(ExposureValue, CombinesTimeSensitivityAndAperture)
{
    EXPECT_FLOAT_EQ(orvo::exposureValue(exposed(1.0f, 1.0f, 100.0f).get()), 0.0f);
    EXPECT_FLOAT_EQ(orvo::exposureValue(exposed(0.5f, 1.0f, 100.0f).get()), -1.0f);
    EXPECT_FLOAT_EQ(orvo::exposureValue(exposed(1.0f, 2.0f, 100.0f).get()), -2.0f);
    EXPECT_FLOAT_EQ(orvo::exposureValue(exposed(1.0f, 1.0f, 800.0f).get()), 3.0f);
    EXPECT_FLOAT_EQ(orvo::exposureValue(exposed(1.0f, 1.0f, 800.0f, 0.5f).get()), 3.5f);
}

TEST(ExposureValue, LeavesTheBiasOut)
{
    const auto metadata = exposed(1.0f, 1.0f, 100.0f);
    metadata->exposureBias = 2.0f;
    EXPECT_FLOAT_EQ(orvo::exposureValue(metadata.get()), 0.0f);
}

TEST(ExposureValue, FallsBackToTheOffset)
{
    EXPECT_EQ(orvo::exposureValue(nullptr), 0.0f);
    EXPECT_FLOAT_EQ(orvo::exposureValue(exposed(0.0f, 2.0f, 100.0f, -2.5f).get()), -2.5f);
    EXPECT_FLOAT_EQ(orvo::exposureValue(exposed(1.0f, 0.0f, 100.0f, -2.5f).get()), -2.5f);
    EXPECT_FLOAT_EQ(orvo::exposureValue(exposed(1.0f, 2.0f, 0.0f, -2.5f).get()), -2.5f);
}

TEST(ExposureValue, IsFiniteForAnyMetadata)
{
    constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();
    constexpr float kInfinity = std::numeric_limits<float>::infinity();
    for (const float bad : {kNaN, kInfinity, -kInfinity, -1.0f, 0.0f, 1e-45f, 3e38f}) {
        EXPECT_TRUE(std::isfinite(orvo::exposureValue(exposed(bad, 2.0f, 100.0f, 1.0f).get()))) << bad;
        EXPECT_TRUE(std::isfinite(orvo::exposureValue(exposed(1.0f, bad, 100.0f, 1.0f).get()))) << bad;
        EXPECT_TRUE(std::isfinite(orvo::exposureValue(exposed(1.0f, 2.0f, bad, 1.0f).get()))) << bad;
    }
    for (const float bad : {kNaN, kInfinity, -kInfinity})
        EXPECT_EQ(orvo::exposureValue(exposed(0.0f, 0.0f, 0.0f, bad).get()), 0.0f);
}

TEST(FillEVsAndSort, SortsByRisingExposureWithTheMiddleAtZero)
{
    std::vector<Frame> frames{
        {1, exposed(4.0f, 1.0f, 100.0f)}, {2, exposed(0.25f, 1.0f, 100.0f)}, {3, exposed(1.0f, 1.0f, 100.0f)}};
    orvo::fillEVsAndSort(frames);
    EXPECT_THAT(names(frames), ElementsAre(2, 3, 1));
    EXPECT_THAT(frames[0].ev, FloatNear(-2.0f, kRounding));
    EXPECT_EQ(frames[1].ev, 0.0f);
    EXPECT_THAT(frames[2].ev, FloatNear(2.0f, kRounding));
}

TEST(FillEVsAndSort, KeepsTheOrderOfEqualFrames)
{
    std::vector<Frame> frames;
    for (int i = 0; i < 40; ++i)
        frames.push_back({i, exposed(i % 2 == 0 ? 1.0f : 0.5f, 1.0f, 100.0f)});
    orvo::fillEVsAndSort(frames);
    for (int i = 0; i < 20; ++i) {
        EXPECT_EQ(frames[static_cast<std::size_t>(i)].name, 2 * i + 1);
        EXPECT_EQ(frames[static_cast<std::size_t>(i) + 20].name, 2 * i);
    }
}

TEST(FillEVsAndSort, TakesTheUpperMiddleOfAnEvenNumber)
{
    std::vector<Frame> frames{{1, exposed(1.0f, 1.0f, 100.0f)}, {2, exposed(4.0f, 1.0f, 100.0f)}};
    orvo::fillEVsAndSort(frames);
    EXPECT_THAT(frames[0].ev, FloatNear(-2.0f, kRounding));
    EXPECT_EQ(frames[1].ev, 0.0f);
}

TEST(FillEVsAndSort, AllowsNoFramesAndNoMetadata)
{
    std::vector<Frame> none;
    orvo::fillEVsAndSort(none);
    EXPECT_TRUE(none.empty());
    std::vector<Frame> bare{{1, nullptr}, {2, exposed(0.5f, 1.0f, 100.0f)}, {3, nullptr}};
    orvo::fillEVsAndSort(bare);
    EXPECT_THAT(names(bare), ElementsAre(2, 1, 3));
    EXPECT_THAT(bare[0].ev, FloatNear(-1.0f, kRounding));
    EXPECT_EQ(bare[1].ev, 0.0f);
    EXPECT_EQ(bare[2].ev, 0.0f);
}

TEST(GhostReductionIndex, IsTheMarkedFrameElseTheMiddleOne)
{
    std::vector<Frame> frames(4);
    EXPECT_EQ(orvo::getGhostReductionIndex(frames), 2);
    frames[3].isGhostReference = true;
    EXPECT_EQ(orvo::getGhostReductionIndex(frames), 3);
    frames[1].isGhostReference = true;
    EXPECT_EQ(orvo::getGhostReductionIndex(frames), 1);
    EXPECT_EQ(orvo::getGhostReductionIndex(std::vector<Frame>(3)), 1);
    EXPECT_EQ(orvo::getGhostReductionIndex(std::vector<Frame>()), 0);
}

} // namespace
