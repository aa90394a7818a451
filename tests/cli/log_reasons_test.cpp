// What becomes of the texts of exceptions before people read them.
#include "log_reasons.hpp"
#include "run_job.hpp"

#include <orvo_logger/logstream.hpp>

#include <gtest/gtest.h>

#include <new>
#include <stdexcept>

namespace orvo::jobs {
namespace {

constexpr const char* kNoMemory = "there is not enough memory for pictures of this size";

// As OpenCV words it: with a place in its source, over two lines.
const std::string kOpenCV = "OpenCV(4.7.0) /src/opencv/modules/core/src/alloc.cpp:73: error: (-4:Insufficient memory) "
                            "Failed to allocate 43200000000 bytes in function 'OutOfMemoryError'\n";

TEST(Reasons, WantOfMemoryReadsTheSameWhoeverTells)
{
    for (const std::string& text : {kOpenCV, "Error in make_HDR: " + kOpenCV, std::string("std::bad_alloc"),
                                    std::string("Error in makeFocusStack: std::bad_alloc")})
        EXPECT_EQ(forPeople(text), kNoMemory) << text;
    EXPECT_EQ(forPeople("Error in make_HDR: the frames differ"), "the frames differ");
    EXPECT_EQ(forPeople("Upscaling: too large"), "too large");
    EXPECT_EQ(forPeople("OpenCV(4.7.0) a.cpp:1: error: (-215:Assertion failed) x in function 'f'\n"),
              "OpenCV(4.7.0) a.cpp:1: error: (-215:Assertion failed) x in function 'f'");
}

TEST(Reasons, WantOfMemoryInTheLogIsOneOfTheRun)
{
    const LogCapture log;
    LOG(__orvolog() << LogMessageType::Error << "Error in make_HDR: " << kOpenCV);
    EXPECT_EQ(reasonOfRun(log, {"a.jpg", "b.jpg"}, "unknown"), kNoMemory);
    EXPECT_EQ(reasonOfRunOn(log, "a.jpg", "unknown"), std::string("a.jpg: ") + kNoMemory);
}

TEST(Reasons, WantOfMemoryForAFileNamesTheFile)
{
    const LogCapture log;
    LOG(__orvolog() << LogMessageType::Warning << "a.jpg: " << kOpenCV);
    EXPECT_EQ(reasonForFile(log, "in/a.jpg", "unknown"), std::string("in/a.jpg: ") + kNoMemory);
}

TEST(Reasons, WantOfMemoryThatEndsAJob)
{
    const auto messageOf = [](const auto& body) {
        JobResult result;
        runJob(result, {}, body);
        EXPECT_EQ(result.outcome, JobOutcome::Failed);
        return result.message;
    };
    EXPECT_EQ(messageOf([] { throw std::runtime_error(kOpenCV); }), kNoMemory);
    EXPECT_EQ(messageOf([] { throw std::bad_alloc(); }), kNoMemory);
    EXPECT_EQ(messageOf([] { throw std::runtime_error("a.jpg: no room"); }), "a.jpg: no room");
}

} // namespace
} // namespace orvo::jobs
