#include "focus_series.hpp"
#include "focus_stacking_levels.hpp"

#include <orvo_image_processing/focus_stacking.hpp>

#include <gmock/gmock.h>

#include <algorithm>
#include <limits>
#include <memory>
#include <stdexcept>

using focus::Picture;
using orvo::MemoryManager;
using orvo::PixelRGB;
using planes::area;

namespace {

using Stacker = grfx::IFocusStacking<PixelRGB<float>>;

// Two roundings of each of the up to nine levels that contribute to a sample.
constexpr float kRoundings = 1e-5f;
// The result is clamped to a range stored in steps of this size.
constexpr float kRangeStep = 1.0f / 8192;
// The effect on coarse levels of a filled row of absent pixels, far from the truth in white noise.
constexpr float kFilledUp = 2e-3f;

std::unique_ptr<Stacker> stacker(int width, int height)
{
    return grfx::produceLaplacianFocusStacking<PixelRGB<float>>(width, height, 8.0f, 8, grfx::ESample::Float);
}

Picture resultOf(Stacker& stacker, int width, int height)
{
    Picture result(width, height);
    stacker.getResult(result.pixels.data(), width, height);
    return result;
}

Picture stacked(const std::vector<Picture>& frames)
{
    const int width = frames[0].width;
    const int height = frames[0].height;
    const auto merging = stacker(width, height);
    for (const Picture& frame : frames)
        merging->addFrame(frame.pixels.data(), width, height, 0);
    EXPECT_EQ(merging->frameCount(), static_cast<int>(frames.size()));
    return resultOf(*merging, width, height);
}

Picture shiftedNoise(int width, int height, std::uint32_t seed)
{
    Picture picture(width, height);
    picture.pixels = planes::noisePicture(width, height, seed);
    for (auto& p : picture.pixels)
        p = {2.5f * p.r - 0.5f, 2.5f * p.g - 0.5f, 2.5f * p.b - 0.5f};
    return picture;
}

template <typename Call>
std::string complaint(const Call& call)
{
    try {
        call();
    } catch (const std::exception& error) {
        return error.what();
    }
    return "nothing thrown";
}

bool allFinite(const Picture& picture)
{
    return std::all_of(picture.pixels.begin(), picture.pixels.end(),
                       [](const auto& p) { return std::isfinite(p.r) && std::isfinite(p.g) && std::isfinite(p.b); });
}

} // namespace

TEST(FocusStacking, OneFrameIsReproduced)
{
    for (const auto& [width, height] : planes::awkwardSizes()) {
        if (width == 0 || height == 0)
            continue;
        const Picture frame = shiftedNoise(width, height, 5);
        EXPECT_LT(focus::worstDifference(stacked({frame}), frame), kRoundings) << width << 'x' << height;
        EXPECT_LT(focus::worstDifference(stacked({frame, frame, frame}), frame), kRoundings) << width << 'x' << height;
    }
}

TEST(FocusStacking, AllSharpPictureIsReproduced)
{
    const focus::Series series = focus::staircase(318, 231, 6);
    const Picture result = stacked(series.frames);
    EXPECT_GT(focus::psnr(result, series.sharp), 40.0);
    for (const Picture& frame : series.frames)
        EXPECT_GT(focus::psnr(result, series.sharp), focus::psnr(frame, series.sharp) + 10.0);
}

TEST(FocusStacking, IsAsSharpAsTheSharpestFrameAtEachPixel)
{
    for (const focus::Series& series : {focus::staircase(318, 231, 6), focus::ramp(318, 231, 9)}) {
        const std::vector<float> result = focus::sharpness(stacked(series.frames));
        std::vector<float> best(result.size(), 0.0f);
        for (const Picture& frame : series.frames) {
            const std::vector<float> own = focus::sharpness(frame);
            double ownSum = 0.0;
            double resultSum = 0.0;
            for (std::size_t i = 0; i < best.size(); ++i) {
                best[i] = std::max(best[i], own[i]);
                ownSum += own[i];
                resultSum += result[i];
            }
            EXPECT_GT(resultSum, 1.1 * ownSum);
        }
        double reached = 0.0;
        double possible = 0.0;
        for (std::size_t i = 0; i < best.size(); ++i) {
            reached += std::min(result[i], best[i]); // more than the best would be ringing and compensates nothing
            possible += best[i];
        }
        EXPECT_GT(reached, 0.97 * possible);
    }
}

TEST(FocusStacking, LeavesNoHaloAroundAnOccluder)
{
    // A bright card in front of a dark wall. Blurred, it glows over the wall; where the wall is sharp it must not.
    const focus::Series series = focus::cardBeforeWall(300, 220);
    const Picture result = stacked(series.frames);
    for (const focus::Ring& ring : series.rings) {
        const double error = focus::meanError(result, series.sharp, ring);
        double best = 1.0;
        for (const Picture& frame : series.frames)
            best = std::min(best, focus::meanError(frame, series.sharp, ring));
        EXPECT_LT(error, best + 0.004) << ring.from << " to " << ring.to;
    }
}

TEST(FocusStacking, LeavesNoSeamWhereTheChoiceChanges)
{
    const focus::Series series = focus::halves(512, 256);
    const Picture result = stacked(series.frames);
    // At the border itself the picture's own level comes from either frame; beyond, none of it is left.
    const auto worstFrom = [&](int distance) {
        float worst = 0.0f;
        for (int y = 0; y < result.height; ++y)
            for (int x = 256 + distance; x < 512; ++x)
                for (const int at : {x, 511 - x})
                    worst = std::max(worst, focus::difference(result.at(at, y), series.sharp.at(at, y)));
        return worst;
    };
    EXPECT_LT(worstFrom(4), 0.03f);
    EXPECT_LT(worstFrom(16), 0.005f);
}

TEST(FocusStacking, StaysInTheRangeOfTheFrames)
{
    std::vector<Picture> frames;
    for (std::uint32_t seed = 1; seed <= 4; ++seed)
        frames.push_back(shiftedNoise(150, 90, seed));
    const Picture result = stacked(frames);
    for (std::size_t i = 0; i < result.pixels.size(); ++i)
        for (int c = 0; c < 3; ++c) {
            const auto of = [&](const Picture& p) { return (&p.pixels[i].r)[c]; };
            const auto less = [&](const Picture& a, const Picture& b) { return of(a) < of(b); };
            const auto [low, high] = std::minmax_element(frames.begin(), frames.end(), less);
            ASSERT_GE(of(result), of(*low) - 1.01f * kRangeStep) << i;
            ASSERT_LE(of(result), of(*high) + 1.01f * kRangeStep) << i;
        }
}

TEST(FocusStacking, FlatNoiseIsTheReferences)
{
    // Shadows four times as noisy as lights, as an encoding makes them.
    constexpr int kWidth = 300;
    constexpr int kHeight = 200;
    const auto deviation = [](int x) { return x < kWidth / 2 ? 0.02f : 0.005f; };
    std::vector<Picture> frames;
    for (std::uint32_t seed = 1; seed <= 8; ++seed) {
        Picture frame = focus::noisy(Picture(kWidth, kHeight), 1.0f, seed);
        for (int y = 0; y < kHeight; ++y)
            for (int x = 0; x < kWidth; ++x) {
                auto& p = frame.at(x, y);
                const float mean = x < kWidth / 2 ? 0.15f : 0.7f;
                p = {mean + deviation(x) * p.r, mean + deviation(x) * p.g, mean + deviation(x) * p.b};
            }
        frames.push_back(frame);
    }
    const Picture result = stacked(frames);
    int foreign = 0;
    for (int y = 0; y < kHeight; ++y)
        for (int x = 0; x < kWidth; ++x) {
            const bool atEdge = std::abs(x - kWidth / 2) < 32; // sharp in all frames, so any of them may win there
            if (!atEdge && focus::difference(result.at(x, y), frames[0].at(x, y)) > 0.25f * deviation(x))
                ++foreign;
        }
    EXPECT_LT(foreign, kWidth * kHeight / 1000);
}

TEST(FocusStacking, NoiseDoesNotHideDetail)
{
    focus::Series series = focus::staircase(318, 231, 6);
    std::uint32_t seed = 40;
    for (Picture& frame : series.frames)
        frame = focus::noisy(frame, 0.01f, ++seed);
    // Noise alone leaves 40 dB; the rest allows for the choices it spoils.
    EXPECT_GT(focus::psnr(stacked(series.frames), series.sharp), 36.0);
}

TEST(FocusStacking, ChannelsComeFromOneFrame)
{
    // One frame has its detail in red, the other a weaker one in green and blue: a choice by channel would mix them.
    const int width = 160;
    const int height = 120;
    Picture red(width, height);
    Picture rest(width, height);
    planes::Random random(3);
    for (std::size_t i = 0; i < red.pixels.size(); ++i) {
        const float a = random.next();
        red.pixels[i] = {0.2f + 0.6f * a, 0.4f, 0.5f};
        rest.pixels[i] = {0.5f, 0.4f + 0.1f * a, 0.4f + 0.1f * random.next()};
    }
    for (const auto& frames : {std::vector<Picture>{red, rest}, std::vector<Picture>{rest, red}}) {
        const Picture result = stacked(frames);
        for (std::size_t i = 0; i < red.pixels.size(); ++i)
            ASSERT_LT(focus::difference(result.pixels[i], red.pixels[i]), 0.03f) << i;
    }
}

TEST(FocusStacking, BrightnessFollowsTheChoice)
{
    // The lens changes brightness too: each frame's own brightness stays where it is the sharp one.
    const focus::Series series = focus::halves(512, 256);
    Picture brighter = series.frames[1];
    for (auto& p : brighter.pixels)
        p = {1.05f * p.r, 1.05f * p.g, 1.05f * p.b};
    const Picture result = stacked({series.frames[0], brighter});
    const auto meanOf = [](const Picture& picture, int fromX, int toX) {
        double sum = 0.0;
        for (int y = 0; y < picture.height; ++y)
            for (int x = fromX; x < toX; ++x)
                sum += static_cast<double>(picture.at(x, y).g);
        return sum / picture.height / (toX - fromX);
    };
    EXPECT_NEAR(meanOf(result, 0, 192) / meanOf(series.frames[0], 0, 192), 1.0, 0.01);
    EXPECT_NEAR(meanOf(result, 320, 512) / meanOf(brighter, 320, 512), 1.0, 0.01);
}

TEST(FocusStacking, ValuesOutOfRangeAreKept)
{
    Picture frame = shiftedNoise(90, 70, 8);
    frame.at(30, 30) = {40.0f, -30.0f, 900.0f};
    EXPECT_LT(focus::worstDifference(stacked({frame}), frame), 900.0f * kRoundings);
}

TEST(FocusStacking, AbsentPixelsNeitherSpreadNorWin)
{
    const Picture whole = shiftedNoise(203, 141, 9);
    for (const float bad : {std::numeric_limits<float>::quiet_NaN(), std::numeric_limits<float>::infinity(), -1e30f}) {
        Picture holed = whole;
        holed.at(0, 0).r = bad;
        holed.at(100, 70).g = bad;
        holed.at(202, 140).b = bad;
        for (int x = 0; x < 203; ++x)
            holed.at(x, 20) = {bad, bad, bad};
        for (const auto& frames : {std::vector{whole, holed}, {holed, whole}, {holed, holed, whole, holed}}) {
            const Picture result = stacked(frames);
            EXPECT_LT(focus::worstDifference(result, whole), kFilledUp) << bad;
            EXPECT_LT(focus::difference(result.at(100, 70), whole.at(100, 70)), kFilledUp) << bad;
        }
    }
}

TEST(FocusStacking, AbsentInAllFramesContinuesTheRow)
{
    Picture holed(64, 48, {0.3f, 0.5f, 0.7f});
    const float nan = std::numeric_limits<float>::quiet_NaN();
    holed.at(0, 7) = holed.at(20, 7) = holed.at(63, 7) = {nan, nan, nan};
    const Picture result = stacked({holed, holed});
    EXPECT_LT(focus::worstDifference(result, Picture(64, 48, {0.3f, 0.5f, 0.7f})), kRoundings);
    const Picture nothing(64, 48, {nan, nan, nan});
    EXPECT_TRUE(allFinite(stacked({nothing, nothing})));
    EXPECT_LT(focus::worstDifference(stacked({nothing, result}), result), kRoundings);
}

TEST(FocusStacking, SameForAnyWorkersAndLeavesNoPlane)
{
    const focus::Series series = focus::staircase(317, 211, 3);
    Picture holed = series.frames[2];
    holed.at(100, 100).g = std::numeric_limits<float>::quiet_NaN();
    planes::expectSameForAnyWorkers([&] { return stacked({series.frames[0], series.frames[1], holed}).pixels; });
}

TEST(FocusStacking, MemoryDoesNotGrowWithTheFrames)
{
    const int width = 1024;
    const int height = 768;
    const Picture even = shiftedNoise(width, height, 1);
    const Picture odd = shiftedNoise(width, height, 2);
    Picture result(width, height);
    MemoryManager& manager = MemoryManager::instance();
    manager.trim(); // planes released by earlier tests may be slightly larger than requested
    const std::size_t before = manager.liveBytes();
    const auto planesOver = [&](std::size_t bytes) {
        return static_cast<double>(bytes - before) / (4.0 * static_cast<double>(area(width, height)));
    };
    const orvo::WorkerLimit limit(2); // scratch rows are per thread, and matter more in a small picture
    {
        const auto merging = stacker(width, height);
        for (int i = 0; i < 7; ++i) {
            manager.resetPeak();
            merging->addFrame(i % 2 == 0 ? even.pixels.data() : odd.pixels.data(), width, height, 0);
            EXPECT_LT(planesOver(manager.liveBytes()), 7.4) << i;
            EXPECT_LT(planesOver(manager.peakBytes()), 9.5) << i;
        }
        Picture holed = even;
        holed.at(500, 300).r = std::numeric_limits<float>::infinity();
        manager.resetPeak();
        merging->addFrame(holed.pixels.data(), width, height, 0);
        EXPECT_LT(planesOver(manager.peakBytes()), 13.5);
        manager.resetPeak();
        merging->getResult(result.pixels.data(), width, height);
        EXPECT_LT(planesOver(manager.peakBytes()), 8.6);
        merging->reset();
        EXPECT_EQ(manager.liveBytes(), before);
        merging->addFrame(odd.pixels.data(), width, height, 0);
    }
    EXPECT_EQ(manager.liveBytes(), before);
}

TEST(FocusStacking, LevelsEndWhereTheArgumentsSay)
{
    const auto count = [](int width, int height, float smallest, int most) {
        return orvo::detail::levelExtents(width, height, smallest, most).size() - 1;
    };
    EXPECT_EQ(count(4000, 3000, 8.0f, 8), 8U);
    EXPECT_EQ(count(4000, 3000, 8.0f, 3), 3U);
    EXPECT_EQ(count(4000, 100, 8.0f, 8), 3U); // 100, 50, 25, 13
    EXPECT_EQ(count(4000, 100, 13.0f, 8), 3U);
    EXPECT_EQ(count(4000, 100, 13.5f, 8), 2U);
    EXPECT_EQ(count(1, 1, 8.0f, 8), 1U);
}

TEST(FocusStacking, ResultChangesNothingAndResetForgets)
{
    const focus::Series series = focus::staircase(130, 97, 3);
    const auto merging = stacker(130, 97);
    const auto add = [&](std::size_t i) { merging->addFrame(series.frames[i].pixels.data(), 130, 97, 0); };
    add(0);
    add(1);
    const Picture two = resultOf(*merging, 130, 97);
    EXPECT_EQ(resultOf(*merging, 130, 97).pixels, two.pixels);
    add(2);
    EXPECT_EQ(resultOf(*merging, 130, 97).pixels, stacked(series.frames).pixels);
    merging->reset();
    EXPECT_EQ(merging->frameCount(), 0);
    add(0);
    add(1);
    EXPECT_EQ(resultOf(*merging, 130, 97).pixels, two.pixels);
}

TEST(FocusStacking, ReportsInvalidArguments)
{
    const auto merging = stacker(20, 10);
    Picture other(21, 10);
    const std::string sizes = complaint([&] { merging->addFrame(other.pixels.data(), 21, 10, 0); });
    EXPECT_THAT(sizes, ::testing::AllOf(::testing::HasSubstr("21x10"), ::testing::HasSubstr("20x10")));
    EXPECT_THROW(merging->addFrame(other.pixels.data(), 20, 11, 0), std::invalid_argument);
    EXPECT_THROW(merging->addFrame(other.pixels.data(), 20, 10, 1), std::invalid_argument);
    EXPECT_EQ(merging->frameCount(), 0);
    EXPECT_THROW(merging->getResult(other.pixels.data(), 20, 10), std::logic_error);
    merging->addFrame(other.pixels.data(), 20, 10, 0);
    EXPECT_THROW(merging->getResult(other.pixels.data(), 21, 10), std::invalid_argument);

    const auto produce = [](int width, int height, float value, int levels, int sample) {
        return complaint([&] {
            (void)grfx::produceLaplacianFocusStacking<PixelRGB<float>>(width, height, value, levels,
                                                                       static_cast<grfx::ESample>(sample));
        });
    };
    EXPECT_THAT(produce(0, 5, 8.0f, 8, 0), ::testing::HasSubstr("width is 0"));
    EXPECT_THAT(produce(5, -1, 8.0f, 8, 0), ::testing::HasSubstr("height is -1"));
    EXPECT_THAT(produce(5, 5, 0.5f, 8, 0), ::testing::HasSubstr("value is 0.5"));
    EXPECT_THAT(produce(5, 5, std::nanf(""), 8, 0), ::testing::HasSubstr("value is nan"));
    EXPECT_THAT(produce(5, 5, 8.0f, 0, 0), ::testing::HasSubstr("levels is 0"));
    EXPECT_THAT(produce(5, 5, 8.0f, 8, 3), ::testing::HasSubstr("sample is 3"));
    EXPECT_EQ(produce(5, 5, 8.0f, 8, 0), "nothing thrown");
}
