#include "panorama/compute_device.hpp"
#include "panorama/scope_exit.hpp"

#include <orvo_logger/log_capture.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <opencv2/core/ocl.hpp>

using namespace orvo;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

const cv::Rect kDone(1, 2, 3, 4);
const cv::Size kSize(300, 200);

DeviceMemory plenty() { return {std::size_t{1} << 30, std::size_t{4} << 30}; }

class ComputeDevice : public testing::Test
{
protected:
    std::vector<cv::Mat> sources = {cv::Mat(600, 800, CV_16SC3), cv::Mat(600, 800, CV_16SC3)};
    LogCapture capture;

    void SetUp() override { forceCpu() = false; }
    void TearDown() override { forceCpu() = false; }

    cv::Rect run(const std::function<DeviceMemory()>& memory, const std::function<cv::Rect()>& compose)
    {
        return composeOnDevice(memory, compose, sources, kSize, "caller");
    }
};

[[noreturn]] cv::Rect failLikeOpenCv() { CV_Error(cv::Error::GpuApiCallError, "no such queue"); }

} // namespace

TEST_F(ComputeDevice, ADeviceWithEnoughMemoryIsUsedSilently)
{
    EXPECT_EQ(run(plenty, [] { return kDone; }), kDone);
    EXPECT_FALSE(forceCpu());
    EXPECT_THAT(capture.lines(), IsEmpty());
}

TEST_F(ComputeDevice, WithoutADeviceTheCpuIsUsed)
{
    EXPECT_EQ(run([] { return DeviceMemory(); }, [] { return kDone; }), kDone);
    EXPECT_TRUE(forceCpu());
    EXPECT_THAT(capture.texts(LogMessageType::Progress), ElementsAre("Trying to make panorama on CPU"));
}

TEST_F(ComputeDevice, ADeviceThatCannotBeQueriedIsLoggedAndNotUsed)
{
    EXPECT_EQ(run([]() -> DeviceMemory { throw std::runtime_error("gone"); }, [] { return kDone; }), kDone);
    EXPECT_TRUE(forceCpu());
    EXPECT_THAT(capture.texts(LogMessageType::Warning),
                ElementsAre("caller: makePanoramaRaw: OpenCV exception on cv::ocl::Device access"));
}

TEST_F(ComputeDevice, AnOpenCvExceptionOnTheDeviceFallsBackPermanently)
{
    int calls = 0;
    const auto compose = [&]() -> cv::Rect { return ++calls == 1 ? failLikeOpenCv() : kDone; };
    EXPECT_EQ(run(plenty, compose), kDone) << "the same call still gives a result";
    EXPECT_TRUE(forceCpu());
    EXPECT_THAT(
        capture.texts(LogMessageType::Warning),
        ElementsAre(testing::AllOf(testing::StartsWith("makePanoramaRaw: OpenCV exception: "),
                                   HasSubstr("no such queue"), EndsWith(". From now on will use a CPU fallback"))));
    int queries = 0;
    const auto memory = [&] {
        ++queries;
        return plenty();
    };
    EXPECT_EQ(run(memory, compose), kDone);
    EXPECT_EQ(queries, 0) << "the device is not queried";
    EXPECT_THAT(capture.texts(LogMessageType::Progress),
                ElementsAre("Trying to make panorama on CPU", "Trying to make panorama on CPU"));
}

TEST_F(ComputeDevice, AnyOtherExceptionOnTheDeviceLogsTheSize)
{
    int calls = 0;
    const auto compose = [&]() -> cv::Rect {
        if (++calls == 1)
            throw std::bad_alloc();
        return kDone;
    };
    EXPECT_EQ(run(plenty, compose), kDone);
    EXPECT_TRUE(forceCpu());
    EXPECT_THAT(capture.texts(LogMessageType::Warning),
                ElementsAre("Probably not enough memory to create panorama on GPU of size, width, height: 300 200"));
}

TEST_F(ComputeDevice, AnOpenCvExceptionOnTheCpuIsLoggedAndRethrown)
{
    forceCpu() = true;
    EXPECT_THROW((void)run(plenty, failLikeOpenCv), cv::Exception);
    EXPECT_THAT(capture.texts(LogMessageType::Error),
                ElementsAre(testing::AllOf(
                    testing::StartsWith(
                        "Probably not enough memory to create panorama on CPU of size, width, height: 300 200OpenCV"),
                    HasSubstr("no such queue"))));
}

TEST_F(ComputeDevice, AnyOtherExceptionOnTheCpuIsLoggedAndRethrown)
{
    forceCpu() = true;
    EXPECT_THROW((void)run(plenty, []() -> cv::Rect { throw 5; }), int);
    EXPECT_THAT(capture.texts(LogMessageType::Error),
                ElementsAre("Probably not enough memory to create panorama on CPU of size, width, height: 300 200"));
}

TEST_F(ComputeDevice, OpenClIsOffOnTheCpuPathAndRestoredInAnyCase)
{
    forceCpu() = true;
    const bool before = cv::ocl::useOpenCL();
    EXPECT_EQ(run(plenty, [] { return cv::ocl::useOpenCL() ? cv::Rect() : kDone; }), kDone);
    EXPECT_EQ(cv::ocl::useOpenCL(), before);
    EXPECT_THROW((void)run(plenty, []() -> cv::Rect { throw 5; }), int);
    EXPECT_EQ(cv::ocl::useOpenCL(), before);
}

TEST_F(ComputeDevice, ASmallDeviceIsNotTried)
{
    // The sources: 2 * 600 * 800 * 6 bytes, at 300 of 800 columns, shared by two pictures.
    const std::size_t estimate = 2u * 600 * 800 * 6 * 300 / 800 / 2;
    EXPECT_TRUE(deviceCanHold({estimate + 1000, std::size_t{1} << 40}, sources, kSize));
    EXPECT_FALSE(deviceCanHold({estimate - 1000, std::size_t{1} << 40}, sources, kSize));
    const auto output = static_cast<std::size_t>(3.0 * 300 * 200 * 4 / 0.8);
    EXPECT_TRUE(deviceCanHold({std::size_t{1} << 40, output + 100}, sources, kSize));
    EXPECT_FALSE(deviceCanHold({std::size_t{1} << 40, output - 100}, sources, kSize));
    EXPECT_FALSE(deviceCanHold({0, std::size_t{1} << 40}, sources, kSize));
    EXPECT_FALSE(deviceCanHold({std::size_t{1} << 40, 0}, sources, kSize));
}

TEST(ScopeExit, RunsAtEveryExitOfTheScope)
{
    int runs = 0;
    try {
        const ScopeExit guard([&] { ++runs; });
        throw 1;
    } catch (int) {
    }
    EXPECT_EQ(runs, 1);
}

TEST(ScopeExit, ExceptionsInItAreLoggedAndNotRethrown)
{
    const LogCapture capture;
    {
        const ScopeExit known([] { throw std::runtime_error("stuck"); });
        const ScopeExit unknown([] { throw 7; });
    }
    EXPECT_THAT(capture.texts(LogMessageType::Error), ElementsAre("Unknown exception thrown during ~ScopeExit.",
                                                                  "Exception thrown during ~ScopeExit. Cause: stuck"));
}
