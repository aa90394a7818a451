// Results and failures of exported calls.
#include "frame/call_frame.hpp"
#include "support/failures.hpp"

#include <orvo_logger/log_capture.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <opencv2/core.hpp>

using namespace orvo;
using namespace orvo::test;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

using Answer = std::shared_ptr<int>;

template <typename Exception>
Answer callThatThrows(const Exception& exception)
{
    return runInCallFrame("make_HDR", [&]() -> Answer { throw exception; });
}

} // namespace

TEST(CallFrame, KeepsTheFailureOfAnException)
{
    const Failure missing{FailureKind::UnreadableFile, "a.jpg", "there is no such file"};
    const LogCapture log;
    EXPECT_FALSE(callThatThrows(FailureError(missing)));
    EXPECT_EQ(lastFailure(), missing);
    EXPECT_THAT(log.texts(LogMessageType::Error), ElementsAre("Error in make_HDR: a.jpg: there is no such file"));
    EXPECT_FALSE(callThatThrows(std::runtime_error("why")));
    EXPECT_EQ(lastFailure(), (Failure{FailureKind::Internal, {}, "why"}));
    EXPECT_FALSE(callThatThrows(7));
    expectLastFailure(FailureKind::Internal);
}

TEST(CallFrame, RecognisesEveryOutOfMemoryError)
{
    EXPECT_FALSE(callThatThrows(std::bad_alloc()));
    expectLastFailure(FailureKind::OutOfMemory);
    const std::string ofAlloc = lastFailure()->sentence;
    EXPECT_FALSE(callThatThrows(cv::Exception(cv::Error::StsNoMem, "Failed to allocate 43200000000 bytes",
                                              "OutOfMemoryError", "alloc.cpp", 73)));
    expectLastFailure(FailureKind::OutOfMemory);
    EXPECT_EQ(lastFailure()->sentence, ofAlloc);
    EXPECT_FALSE(callThatThrows(cv::Exception(cv::Error::StsAssert, "x > 0", "f", "f.cpp", 1)));
    expectLastFailure(FailureKind::Internal);
}

TEST(CallFrame, AStatedFailureIsNotLogged)
{
    const LogCapture log;
    EXPECT_FALSE(runInCallFrame("make_HDR", []() -> Answer {
        details::stateFailure({FailureKind::UnfittingPictures, "b.jpg", "it is too small"});
        return {};
    }));
    expectLastFailure(FailureKind::UnfittingPictures, "b.jpg");
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(CallFrame, ACancelIsTheFailure)
{
    const RunControl run([] { return true; });
    EXPECT_FALSE(runInCallFrame("make_HDR", run, [&]() -> Answer {
        details::stateFailure({FailureKind::UnfittingPictures, {}, "nothing fits"});
        return run.cancelled() ? Answer() : std::make_shared<int>(1);
    }));
    EXPECT_EQ(lastFailure(), cancelledFailure());
}

TEST(CallFrame, AResultLeavesNoFailure)
{
    (void)callThatThrows(7);
    EXPECT_TRUE(runInCallFrame("make_HDR", [] { return std::make_shared<int>(3); }));
    EXPECT_FALSE(lastFailure().has_value());
}

TEST(OpenCallFrame, LetsTheExceptionOut)
{
    EXPECT_THROW((void)runInOpenCallFrame([]() -> Answer { throw std::bad_alloc(); }), std::bad_alloc);
    expectLastFailure(FailureKind::OutOfMemory);
}
