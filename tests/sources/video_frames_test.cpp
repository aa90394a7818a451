// Key frames of pans with known positions.
#include "sources/mf_capture.hpp"
#include "sources/video_frames.hpp"
#include "videos.hpp"

#include <orvo_core/parallel.hpp>
#include <orvo_logger/log_capture.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <fstream>

using namespace orvo;
using namespace orvo::test;
using scenes::VideoFileSettings;
using testing::ElementsAre;

namespace {

constexpr std::uint64_t kNoEnd = 1000000;
constexpr int kWindowWidth = 320;
constexpr int kWindowHeight = 240;
constexpr int kStepAt30 = 3; // frames between examined frames
// Straight on, the share of a frame that may be lost between key frames: 2 / pi.
constexpr double kLostAtMost = 0.6366;

bool never() { return false; }
void ignored(float) {}

std::vector<cv::Mat> selected(const std::filesystem::path& file, std::uint64_t start = 0, std::uint64_t end = kNoEnd)
{
    return selectVideoFrames(file, start, end, ignored, never);
}

// A pan over a world of `worldWidth`, from left to right; `x` gives the window's left edge for each frame.
Pan panAcross(int worldWidth, std::function<int(std::size_t)> x)
{
    return {drawnWorld(worldWidth, kWindowHeight, 3),
            {kWindowWidth, kWindowHeight},
            [x = std::move(x)](std::size_t frame) { return cv::Point(x(frame), 0); }};
}

std::vector<std::size_t> framesShown(const Pan& pan, const std::vector<cv::Mat>& keyFrames, std::size_t frames)
{
    std::vector<std::size_t> shown;
    for (const cv::Mat& keyFrame : keyFrames)
        shown.push_back(pan.frameShownBy(keyFrame, frames));
    return shown;
}

// A Matroska number (RFC 8794): one byte more than the leading zeros of its first byte; the first set bit is part of
// the number only in ids.
std::uint64_t ebmlNumber(const std::string& bytes, std::size_t& at, bool isName)
{
    const auto first = static_cast<std::uint8_t>(bytes.at(at++));
    const int length = std::countl_zero(first) + 1;
    std::uint64_t number = isName ? first : first & (0xffu >> length);
    for (int i = 1; i < length; ++i)
        number = number << 8 | static_cast<std::uint8_t>(bytes.at(at++));
    return number;
}

// Sets the times of all blocks between `at` and `end` to 0.
void clearTimes(std::string& bytes, std::size_t at, std::size_t end)
{
    constexpr std::uint64_t kSegment = 0x18538067, kCluster = 0x1F43B675, kBlockGroup = 0xA0;
    constexpr std::uint64_t kTimestamp = 0xE7, kSimpleBlock = 0xA3, kBlock = 0xA1;
    while (at < end) {
        const std::uint64_t name = ebmlNumber(bytes, at, true);
        const std::uint64_t size = ebmlNumber(bytes, at, false);
        const std::size_t next = at + std::min<std::uint64_t>(size, end - at);
        if (name == kSegment || name == kCluster || name == kBlockGroup)
            clearTimes(bytes, at, next);
        else if (name == kTimestamp)
            std::fill(bytes.begin() + static_cast<std::ptrdiff_t>(at),
                      bytes.begin() + static_cast<std::ptrdiff_t>(next), '\0');
        else if (name == kSimpleBlock || name == kBlock)
            bytes.replace(at + 1, 2, 2, '\0'); // after the track number
        at = next;
    }
}

class SelectVideoFrames : public testing::Test
{
protected:
    TemporaryFolder folder;
};

// The frame rates of cameras and the sampling step of each.
struct RateAndStep
{
    int numerator;
    int denominator;
    int step;
};

void PrintTo(const RateAndStep& rate, std::ostream* out) { *out << rate.numerator << '/' << rate.denominator; }

class SamplingStep : public testing::TestWithParam<RateAndStep>
{
protected:
    TemporaryFolder folder;
};

// Walks through frames 4 .. 63 of a pan of one pixel per frame, and expects the progress and the frames of a walk with
// `step`.
void expectLooks(const Pan& pan, const std::filesystem::path& path, std::uint64_t step)
{
    constexpr std::uint64_t kStart = 4;
    constexpr std::uint64_t kEnd = 64;
    std::vector<float> reported;
    const auto keyFrames = selectVideoFrames(
        path, kStart, kEnd, [&](float share) { reported.push_back(share); }, never);

    // The counter starts two above the start and gains `step` and one per examined frame.
    std::vector<float> expected;
    std::uint64_t looks = 0;
    for (std::uint64_t position = kStart + 2; position + step - 1 < kEnd; ++looks) {
        position += step + 1;
        expected.push_back(static_cast<float>(position - 1 - kStart) / static_cast<float>(kEnd - kStart));
    }
    expected.push_back(1.0f);
    EXPECT_EQ(reported, expected);
    EXPECT_THAT(framesShown(pan, keyFrames, 70), ElementsAre(kStart, kStart + looks * step));
}

} // namespace

TEST_F(SelectVideoFrames, CoverAPanWithFewFrames)
{
    constexpr std::size_t kFrames = 150;
    const Pan pan = panAcross(kWindowWidth + 6 * 150, [](std::size_t frame) { return static_cast<int>(6 * frame); });
    const auto keyFrames = selected(pan.write(folder / "pan.mp4", kFrames));
    for (const cv::Mat& keyFrame : keyFrames) {
        EXPECT_EQ(keyFrame.type(), CV_16SC3);
        EXPECT_EQ(keyFrame.size(), pan.window);
    }
    const auto shown = framesShown(pan, keyFrames, kFrames);
    ASSERT_GE(shown.size(), 3u);
    EXPECT_EQ(shown.front(), 0u);
    // The walk reached the end of the video, so the last examined frame is there.
    EXPECT_EQ(shown.back(), (kFrames - 1) / kStepAt30 * kStepAt30);
    for (std::size_t i = 1; i < shown.size(); ++i) {
        const int moved = pan.corner(shown[i]).x - pan.corner(shown[i - 1]).x;
        EXPECT_GT(moved, 0);
        EXPECT_LE(moved, kLostAtMost * kWindowWidth + 2) << "from frame " << shown[i - 1] << " to " << shown[i];
        if (i + 1 < shown.size()) { // no more than needed: each is the last one that still overlaps
            EXPECT_GE(moved, kLostAtMost * kWindowWidth - 2 * 6 * kStepAt30) << i;
        }
    }
}

TEST_F(SelectVideoFrames, AreThirtySixAtMost)
{
    constexpr std::size_t kFrames = 300;
    constexpr int kPerFrame = 26; // the second examined frame is the last that overlaps
    const Pan pan = panAcross(kWindowWidth + kPerFrame * 300,
                              [](std::size_t frame) { return kPerFrame * static_cast<int>(frame); });
    const auto keyFrames = selected(pan.write(folder / "long.mp4", kFrames));
    EXPECT_EQ(keyFrames.size(), 36u);
    const auto shown = framesShown(pan, keyFrames, kFrames);
    EXPECT_TRUE(std::is_sorted(shown.begin(), shown.end()));
    EXPECT_EQ(shown.back(), 35u * 2 * kStepAt30);
}

TEST_F(SelectVideoFrames, DoNotIncreaseWhileThePanPauses)
{
    // 120 pixels to the right, then a long stop.
    const Pan pan = panAcross(
        kWindowWidth + 120, [](std::size_t frame) { return static_cast<int>(std::min<std::size_t>(6 * frame, 120)); });
    const auto keyFrames = selected(pan.write(folder / "stands.mp4", 120));
    ASSERT_EQ(keyFrames.size(), 2u);
    EXPECT_EQ(pan.corner(pan.frameShownBy(keyFrames[1], 120)).x, 120);
}

TEST_F(SelectVideoFrames, ContinueAfterAPause)
{
    // The same with a continuation: the pending frame advanced to the stop, and is kept when the pan goes on.
    const Pan pan = panAcross(kWindowWidth + 300, [](std::size_t frame) {
        const int at = static_cast<int>(6 * frame);
        return at <= 120 ? at : at <= 420 ? 120 : std::min(at - 300, 300);
    });
    const auto shown = framesShown(pan, selected(pan.write(folder / "pauses.mp4", 120)), 120);
    ASSERT_EQ(shown.size(), 3u);
    EXPECT_GT(pan.corner(shown[1]).x, 120);
    EXPECT_EQ(pan.corner(shown[2]).x, 300);
}

TEST_F(SelectVideoFrames, KeepTheFarthestFrameWhenTheCameraTurnsBack)
{
    // Camera positions of the examined frames, in window widths: out to the right, then back beyond the start. The
    // first one on the other side has lost a quarter, too much for a camera that turned back.
    const std::vector<double> places = {0.0, 0.15, 0.3, -0.25, -0.27, -0.29, -0.3};
    const Pan pan = panAcross(2 * kWindowWidth, [places](std::size_t frame) {
        return kWindowWidth / 2 +
               static_cast<int>(places[std::min(frame / kStepAt30, places.size() - 1)] * kWindowWidth);
    });
    const std::size_t frames = places.size() * kStepAt30;
    const auto shown = framesShown(pan, selected(pan.write(folder / "back.mp4", frames)), frames);
    ASSERT_EQ(shown.size(), 3u);
    EXPECT_EQ(pan.corner(shown[0]).x, pan.corner(0).x);
    EXPECT_EQ(pan.corner(shown[1]).x, pan.corner(2 * kStepAt30).x);
    EXPECT_EQ(pan.corner(shown[2]).x, pan.corner(frames - 1).x);
}

TEST_F(SelectVideoFrames, TurningBackSlowlyIsNoReasonForAKeyFrame)
{
    const Pan pan = panAcross(2 * kWindowWidth, [](std::size_t frame) {
        const int at = static_cast<int>(frame);
        return 160 + (at < 20 ? 4 * at : 80 - 4 * (at - 20));
    });
    const auto shown = framesShown(pan, selected(pan.write(folder / "slow.mp4", 60)), 60);
    EXPECT_THAT(shown, ElementsAre(0u, 57u));
}

TEST_P(SamplingStep, LooksAboutTenTimesASecond)
{
    VideoFileSettings settings;
    settings.rateNumerator = GetParam().numerator;
    settings.rateDenominator = GetParam().denominator;
    const Pan pan = panAcross(kWindowWidth + 70, [](std::size_t frame) { return static_cast<int>(frame); });
    expectLooks(pan, pan.write(folder / "rate.mp4", 70, settings), static_cast<std::uint64_t>(GetParam().step));
}

INSTANTIATE_TEST_SUITE_P(, SamplingStep,
                         testing::Values(RateAndStep{24, 1, 2}, RateAndStep{25, 1, 2}, RateAndStep{30000, 1001, 2},
                                         RateAndStep{30, 1, 3}, RateAndStep{60, 1, 6}),
                         [](const auto& test) {
                             return "At" + std::to_string(test.param.numerator / test.param.denominator) +
                                    (test.param.denominator == 1 ? "" : "Drop");
                         });

TEST_F(SelectVideoFrames, WithoutAFrameRateAreThoseOf30)
{
    // All frames have the same time, so there is no rate.
    VideoFileSettings settings;
    settings.bFrames = 0;
    for (int i = 0; i < 70; ++i)
        settings.timesMs.push_back(40 * i);
    const Pan pan = panAcross(kWindowWidth + 70, [](std::size_t frame) { return static_cast<int>(frame); });
    const auto path = pan.write(folder / "timeless.mkv", 70, settings);
    expectLooks(pan, path, 2); // at 25
    std::ifstream file(path, std::ios::binary);
    std::string bytes{std::istreambuf_iterator<char>(file), {}};
    clearTimes(bytes, 0, bytes.size());
    std::ofstream(path, std::ios::binary) << bytes;

    const LogCapture log;
    expectLooks(pan, path, kStepAt30);
    EXPECT_THAT(log.texts(LogMessageType::Warning), ElementsAre(testing::EndsWith(": Error reading video fps")));
}

TEST_F(SelectVideoFrames, OfASlowVideoAreItsFirstFrameOnly)
{
    VideoFileSettings settings;
    settings.rateNumerator = 9;
    const Pan pan = panAcross(kWindowWidth + 400, [](std::size_t frame) { return static_cast<int>(10 * frame); });
    const auto path = pan.write(folder / "slow.mp4", 40, settings);
    EXPECT_THAT(framesShown(pan, selected(path), 40), ElementsAre(0u));
    EXPECT_THAT(framesShown(pan, selected(path, 7), 40), ElementsAre(7u));
}

TEST_F(SelectVideoFrames, OfAnEmptyIntervalAreItsFirstFrameOnly)
{
    const Pan pan = panAcross(kWindowWidth + 400, [](std::size_t frame) { return static_cast<int>(10 * frame); });
    const auto path = pan.write(folder / "pan.mp4", 40);
    EXPECT_THAT(framesShown(pan, selected(path, 5, 5), 40), ElementsAre(5u));
    EXPECT_THAT(framesShown(pan, selected(path, 5, 2), 40), ElementsAre(5u));
}

TEST_F(SelectVideoFrames, OfATruncatedVideoAreThoseBeforeTheCut)
{
    constexpr std::size_t kFrames = 90;
    const Pan pan = panAcross(kWindowWidth + 6 * 90, [](std::size_t frame) { return static_cast<int>(6 * frame); });
    const auto path = pan.write(folder / "cut.mkv", kFrames);
    const auto whole = framesShown(pan, selected(path), kFrames);
    std::filesystem::resize_file(path, std::filesystem::file_size(path) / 2);
    const auto kept = framesShown(pan, selected(path), kFrames);
    ASSERT_GE(kept.size(), 2u);
    EXPECT_LT(kept.back(), whole.back());
    EXPECT_EQ(kept[0], whole[0]);
}

TEST_F(SelectVideoFrames, OfAVideoWithNothingInItAreItsFirstFrameOnly)
{
    const Pan black{cv::Mat::zeros(kWindowHeight, kWindowWidth, CV_8UC3),
                    {kWindowWidth, kWindowHeight},
                    [](std::size_t) { return cv::Point(0, 0); }};
    EXPECT_EQ(selected(black.write(folder / "black.mp4", 30)).size(), 1u);
}

TEST_F(SelectVideoFrames, AreUprightAndWorkingColour)
{
    VideoFileSettings settings;
    settings.rotationDegrees = 90;
    cv::Mat white(kWindowHeight, kWindowWidth, CV_8UC3, cv::Scalar(255, 255, 255));
    const Pan pan{white, {kWindowWidth, kWindowHeight}, [](std::size_t) { return cv::Point(0, 0); }};
    settings.codec = scenes::VideoCodec::Mpeg4;
    settings.bFrames = 0;
    const auto keyFrames = selected(pan.write(folder / "white.mp4", 4, settings));
    ASSERT_EQ(keyFrames.size(), 1u);
    EXPECT_EQ(keyFrames[0].size(), cv::Size(kWindowHeight, kWindowWidth));
    // White is 255, which maps to 16383.5 and is rounded.
    const auto middle = keyFrames[0].at<cv::Vec3s>(100, 100);
    for (int channel = 0; channel < 3; ++channel)
        EXPECT_NEAR(middle[channel], 16383.5, 2 * 64.25);
}

TEST_F(SelectVideoFrames, AreTheFramesOfTheCaptureTimesTheWorkingScale)
{
    const Pan pan = panAcross(kWindowWidth + 40, [](std::size_t frame) { return static_cast<int>(frame); });
    const auto path = pan.write(folder / "pan.mp4", 9);
    std::optional<MFCapture> capture = openCapture(path);
    ASSERT_TRUE(capture);
    cv::Mat bytes;
    capture->readFrame(2, bytes);
    constexpr double kRounding = 0.502; // the product in single precision, then to the nearest
    for (const auto& frames : {selected(path, 2, 3), readCompositionFrames(path, {2})}) {
        ASSERT_EQ(frames.size(), 1u);
        ASSERT_EQ(frames[0].size(), bytes.size());
        for (int y = 0; y < bytes.rows; ++y)
            for (int x = 0; x < bytes.cols; ++x)
                for (int c = 0; c < 3; ++c)
                    ASSERT_NEAR(frames[0].at<cv::Vec3s>(y, x)[c],
                                static_cast<double>(bytes.at<cv::Vec3b>(y, x)[c]) * 64.24901960784314, kRounding);
    }
}

TEST_F(SelectVideoFrames, ThrowIfOnlyLaterOnesHaveKeyPoints)
{
    cv::Mat world = drawnWorld(2 * kWindowWidth, kWindowHeight, 3);
    world.colRange(0, kWindowWidth).setTo(0);
    const Pan pan{world, {kWindowWidth, kWindowHeight}, [](std::size_t frame) {
                      return cv::Point(frame == 0 ? 0 : kWindowWidth, 0);
                  }};
    EXPECT_THROW((void)selected(pan.write(folder / "late.mp4", 30)), cv::Exception);
}

TEST_F(SelectVideoFrames, AreTheSameEveryTimeAndForAnyNumberOfThreads)
{
    const Pan pan = panAcross(kWindowWidth + 600, [](std::size_t frame) { return static_cast<int>(10 * frame); });
    const auto path = pan.write(folder / "pan.mp4", 60);
    const auto first = selected(path);
    cv::theRNG() = cv::RNG(12345); // as if other work had used the thread's random numbers
    const WorkerLimit limit(1);
    const auto second = selected(path);
    EXPECT_EQ(cv::theRNG().state, cv::RNG(12345).state); // unchanged
    ASSERT_EQ(first.size(), second.size());
    for (std::size_t i = 0; i < first.size(); ++i)
        EXPECT_EQ(cv::norm(first[i], second[i], cv::NORM_INF), 0.0);
}

TEST_F(SelectVideoFrames, AreNoneAfterACancelAtAnyMoment)
{
    const Pan pan = panAcross(kWindowWidth + 90, [](std::size_t frame) { return static_cast<int>(6 * frame); });
    const auto path = pan.write(folder / "pan.mp4", 15);
    int polls = 0;
    const auto whole = selectVideoFrames(path, 0, kNoEnd, ignored, [&polls] { return ++polls < 0; });
    EXPECT_FALSE(whole.empty());
    EXPECT_GE(polls, 10); // once at the start, then three times per examined frame
    for (int at = 1; at <= polls; ++at) {
        int count = 0;
        bool isDone = false;
        const auto frames = selectVideoFrames(
            path, 0, kNoEnd, [&isDone](float share) { isDone = share == 1.0f; }, [&] { return ++count == at; });
        EXPECT_TRUE(frames.empty()) << at;
        EXPECT_FALSE(isDone) << at;
        EXPECT_EQ(count, at);
    }
}

TEST_F(SelectVideoFrames, AreNoneOfAFileThatCannotBeOpened)
{
    const LogCapture log;
    bool isCalled = false;
    const auto frames = selectVideoFrames(
        folder / "missing.mp4", 0, 10, [&](float) { isCalled = true; }, [&] { return isCalled = true; });
    EXPECT_TRUE(frames.empty());
    EXPECT_FALSE(isCalled);
    EXPECT_EQ(log.texts(LogMessageType::Error).size(), 1u);
}

TEST_F(SelectVideoFrames, ThrowWhenTheFirstFrameCannotBeRead)
{
    EXPECT_THROW((void)selected(writeNumbered(folder / "short.mp4", 10), 10), cv::Exception);
}

class ReadCompositionFrames : public testing::Test
{
protected:
    TemporaryFolder folder;

    std::vector<std::optional<std::uint32_t>> numbers(const std::vector<std::uint64_t>& frames)
    {
        std::vector<std::optional<std::uint32_t>> found;
        for (const cv::Mat& frame : readCompositionFrames(writeNumbered(folder / "numbers.mp4", 40), frames))
            found.push_back(numberOf(frame));
        return found;
    }
};

TEST_F(ReadCompositionFrames, UseTheCounterOfTheCapture)
{
    // Each read moves the counter one further ahead of the decoder.
    EXPECT_THAT(numbers({3, 10, 20, 30}), ElementsAre(3u, 9u, 18u, 27u));
    EXPECT_THAT(numbers({17}), ElementsAre(17u));
}

TEST_F(ReadCompositionFrames, LeaveAnEmptyMatrixForUnreadableFrames)
{
    EXPECT_THAT(numbers({3, 60}), ElementsAre(3u, std::nullopt));
    EXPECT_THAT(numbers({5, 5, 30}), ElementsAre(5u, std::nullopt, 17u)); // the second one went back to the start
    EXPECT_THAT(numbers({5, 6}), ElementsAre(5u, std::nullopt));
}

TEST_F(ReadCompositionFrames, AreWorkingColour)
{
    const auto frames = readCompositionFrames(writeNumbered(folder / "numbers.mp4", 5), {2});
    ASSERT_EQ(frames.size(), 1u);
    EXPECT_EQ(frames[0].type(), CV_16SC3);
    double least = 0.0;
    double most = 0.0;
    cv::minMaxLoc(frames[0].reshape(1), &least, &most);
    EXPECT_NEAR(least, 0.0, 4 * 64.25);
    EXPECT_GE(most, 16380.0);
    EXPECT_LE(most, 16384.0);
}

TEST_F(ReadCompositionFrames, AreNoneWithoutNumbersOrWithoutAFile)
{
    const LogCapture log;
    EXPECT_TRUE(readCompositionFrames(folder / "missing.mp4", {}).empty());
    EXPECT_TRUE(log.texts(LogMessageType::Error).empty()); // the file was not even opened
    EXPECT_TRUE(readCompositionFrames(folder / "missing.mp4", {1, 2}).empty());
    EXPECT_EQ(log.texts(LogMessageType::Error).size(), 1u);
}
