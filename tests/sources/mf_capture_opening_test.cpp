// Log lines of a capture for each outcome of opening, with a substitute for the platform's decoder: this program
// defines openVideoReader() itself, so that the library's is not linked.
#include "sources/mf_capture.hpp"

#include <orvo_logger/log_capture.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

using namespace orvo;
using testing::AllOf;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;

namespace {

VideoOpening outcome = VideoOpening::Opened;
std::int32_t code = 0;
std::wstring openedPath;

class NoSamples final : public VideoReader
{
public:
    VideoFrameRate frameRate() override { return {30, 1}; }
    bool readSample(cv::Mat&) override { return false; }
    bool seekToStart() override { return true; }
};

// Expects the one line of the constructor, at the level of errors, to end in `message`.
void expectFailure(VideoOpening how, std::int32_t withCode, const std::string& message)
{
    outcome = how;
    code = withCode;
    const LogCapture log;
    EXPECT_FALSE(MFCapture(L"pan.mp4").isOpen());
    EXPECT_FALSE(openCapture("pan.mp4"));
    const auto line = AllOf(HasSubstr("orvo::MFCapture::MFCapture("), EndsWith(": " + message));
    EXPECT_THAT(log.texts(LogMessageType::Error), ElementsAre(line, line));
    EXPECT_EQ(log.lines().size(), 2u);
}

} // namespace

orvo::OpenedVideo orvo::openVideoReader(const std::wstring& path)
{
    openedPath = path;
    return {outcome, code, outcome == VideoOpening::Opened ? std::make_unique<NoSamples>() : nullptr};
}

TEST(MFCaptureOpening, LogsThatTheDecoderDidNotStart)
{
    expectFailure(VideoOpening::NoDecoder, -2147467263, "Failed to initialize Media Foundation.");
}

TEST(MFCaptureOpening, LogsTheErrorCodeInDecimal)
{
    expectFailure(VideoOpening::Unreadable, -1072875772,
                  "Failed initializing media foundation reader with error code -1072875772");
    // If a call after setting the media type fails, the code is that of setting it: success.
    expectFailure(VideoOpening::Unreadable, 0, "Failed initializing media foundation reader with error code 0");
}

TEST(MFCaptureOpening, LogsNothingForAnOpenFile)
{
    outcome = VideoOpening::Opened;
    const LogCapture log;
    std::optional<MFCapture> capture = openCapture("folder/pan ä.mp4");
    ASSERT_TRUE(capture);
    EXPECT_TRUE(capture->isOpen());
    EXPECT_EQ(capture->framePosition(), 0u);
    EXPECT_EQ(openedPath, L"folder/pan ä.mp4");
    EXPECT_TRUE(log.lines().empty());
}
