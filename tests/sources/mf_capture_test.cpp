// The frame counter of a capture, on a decoder that records every call.
#include "sources/frame_stepper.hpp"
#include "sources/mf_capture.hpp"

#include <orvo_logger/log_capture.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <opencv2/core.hpp>

#include <type_traits>

using namespace orvo;
using testing::ElementsAre;
using testing::HasSubstr;

namespace {

// Calls of the decoder; outlives it.
struct Record
{
    int reads = 0;
    int seeks = 0;
};

// Its sample n is one pixel with blue = n.
class CountingReader final : public VideoReader
{
public:
    CountingReader(Record& calls, int sampleCount, VideoFrameRate fps, bool seekable)
        : record(calls), samples(sampleCount), rate(fps), canSeek(seekable)
    {}

    VideoFrameRate frameRate() override { return rate; }

    bool readSample(cv::Mat& out) override
    {
        ++record.reads;
        if (next == samples)
            return false;
        out.create(1, 1, CV_8UC3);
        out.at<cv::Vec3b>(0, 0) = {static_cast<unsigned char>(next), 0, 0};
        ++next;
        return true;
    }

    bool seekToStart() override
    {
        ++record.seeks;
        if (canSeek)
            next = 0;
        return canSeek;
    }

private:
    Record& record;
    int samples;
    VideoFrameRate rate;
    bool canSeek;
    int next = 0;
};

constexpr int kNothing = -1;

int sampleIn(const cv::Mat& frame) { return frame.empty() ? kNothing : frame.at<cv::Vec3b>(0, 0)[0]; }

class MFCaptureCounter : public testing::Test
{
protected:
    Record record;

    MFCapture capture(int samples, VideoFrameRate rate = {30, 1}, bool canSeek = true)
    {
        return MFCapture(std::make_unique<CountingReader>(record, samples, rate, canSeek));
    }
};

int readFrom(MFCapture& capture, std::uint64_t index)
{
    cv::Mat frame;
    capture.readFrame(index, frame);
    return sampleIn(frame);
}

} // namespace

static_assert(std::is_move_constructible_v<MFCapture> && !std::is_copy_constructible_v<MFCapture>);

TEST_F(MFCaptureCounter, RunsAheadByOneForEachRead)
{
    MFCapture video = capture(100);
    EXPECT_EQ(video.framePosition(), 0u);
    EXPECT_EQ(readFrom(video, 5), 5);
    EXPECT_EQ(video.framePosition(), 7u);
    EXPECT_EQ(record.reads, 6);
    EXPECT_EQ(readFrom(video, 10), 9); // the counter is one ahead of the decoder
    EXPECT_EQ(video.framePosition(), 12u);
    EXPECT_EQ(readFrom(video, 20), 18);
    EXPECT_EQ(record.reads, 19);
    EXPECT_EQ(record.seeks, 0);
}

TEST_F(MFCaptureCounter, ReadingAtThePositionTakesOneSample)
{
    MFCapture video = capture(100);
    EXPECT_EQ(readFrom(video, 0), 0);
    EXPECT_EQ(video.framePosition(), 2u);
    EXPECT_EQ(readFrom(video, 2), 1);
    EXPECT_EQ(video.framePosition(), 4u);
}

TEST_F(MFCaptureCounter, ReadingBehindThePositionLeavesThePictureAlone)
{
    MFCapture video = capture(100);
    EXPECT_EQ(readFrom(video, 5), 5);
    cv::Mat frame(1, 1, CV_8UC3, cv::Scalar(77, 0, 0));
    video.readFrame(2, frame);
    EXPECT_EQ(sampleIn(frame), 77);
    EXPECT_EQ(record.reads, 6);
    EXPECT_GE(record.seeks, 1);
    // Frames 0, 1 and 2 were each requested, and each incremented the counter.
    EXPECT_EQ(video.framePosition(), 10u);
    // The decoder is back at its start, the counter is not.
    EXPECT_EQ(readFrom(video, 10), 0);
    EXPECT_EQ(readFrom(video, 14), 3);
}

TEST_F(MFCaptureCounter, ReadingTheFirstFrameAgainMovesTheCounterByOne)
{
    MFCapture video = capture(100);
    EXPECT_EQ(readFrom(video, 5), 5);
    EXPECT_EQ(readFrom(video, 0), kNothing);
    EXPECT_EQ(record.seeks, 1);
    EXPECT_EQ(video.framePosition(), 8u);
}

TEST_F(MFCaptureCounter, ADecoderThatCannotGoBackEmptiesThePicture)
{
    MFCapture video = capture(100, {30, 1}, false);
    EXPECT_EQ(readFrom(video, 5), 5);
    cv::Mat frame(1, 1, CV_8UC3, cv::Scalar(77, 0, 0));
    video.readFrame(2, frame);
    EXPECT_TRUE(frame.empty());
    EXPECT_EQ(video.framePosition(), 7u);
}

TEST_F(MFCaptureCounter, TheEndEmptiesThePictureAndCountsTheReadThatFailed)
{
    MFCapture video = capture(4);
    cv::Mat frame(1, 1, CV_8UC3, cv::Scalar(77, 0, 0));
    video.readFrame(9, frame);
    EXPECT_TRUE(frame.empty());
    EXPECT_EQ(record.reads, 5);
    EXPECT_EQ(video.framePosition(), 5u);
}

TEST_F(MFCaptureCounter, APictureHasMemoryOfItsOwn)
{
    MFCapture video = capture(100);
    cv::Mat frame;
    video.readFrame(3, frame);
    const cv::Mat kept = frame;
    video.readFrame(9, frame);
    EXPECT_EQ(sampleIn(kept), 3);
    EXPECT_EQ(sampleIn(frame), 8);
}

TEST_F(MFCaptureCounter, ALargeIndexBehindThePositionIsAsQuickAsASmallOne)
{
    MFCapture video = capture(10);
    for (int i = 0; i < 60; ++i) { // doubles the counter each time
        const std::uint64_t before = video.framePosition();
        readFrom(video, before == 0 ? 0 : before - 1);
    }
    EXPECT_GT(video.framePosition(), std::uint64_t{1} << 58);
}

TEST_F(MFCaptureCounter, StepsAreExactlyThatManySamplesApart)
{
    MFCapture video = capture(30);
    EXPECT_EQ(readFrom(video, 4), 4);
    FrameStepper stepper(std::move(video), 3, 18);
    std::vector<int> samples;
    std::vector<std::uint64_t> indices;
    for (;;) {
        const auto [frame, index] = stepper.next();
        indices.push_back(index);
        if (frame.empty())
            break;
        samples.push_back(sampleIn(frame));
    }
    EXPECT_THAT(samples, ElementsAre(7, 10, 13));
    // The position less one: ahead of the sample by the number of reads; it also ends the loop.
    EXPECT_THAT(indices, ElementsAre(9u, 13u, 17u, 17u));
}

TEST_F(MFCaptureCounter, AStepOfZeroGivesNothing)
{
    MFCapture video = capture(30);
    EXPECT_EQ(readFrom(video, 4), 4);
    FrameStepper stepper(std::move(video), 0, 18);
    EXPECT_TRUE(stepper.next().frame.empty());
    EXPECT_EQ(record.seeks, 1);
}

TEST_F(MFCaptureCounter, ReturnsTheFrameRate)
{
    EXPECT_EQ(capture(1, {24, 1}).getFps(), 24.0f);
    EXPECT_EQ(capture(1, {30000, 1001}).getFps(), 30000.0f / 1001.0f);
    EXPECT_EQ(capture(1, {0, 1}).getFps(), 0.0f);
}

TEST_F(MFCaptureCounter, AFileWithoutAFrameRateCountsAs30)
{
    const LogCapture log;
    EXPECT_EQ(capture(1, {25, 0}).getFps(), 30.0f);
    const auto lines = log.texts(LogMessageType::Warning);
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_THAT(lines[0], HasSubstr("getFps"));
    EXPECT_THAT(lines[0], testing::EndsWith(": Error reading video fps"));
}
