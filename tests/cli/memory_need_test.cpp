// The estimates by which a batch bounds its memory, against the peaks of the program. The peak of a process never
// decreases, so each command runs in its own.
#include "brackets.hpp"
#include "program.hpp"
#include "support/temporary_folder.hpp"

#include <jobs/memory_need.hpp>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace orvo::test {
namespace {

constexpr int kWidth = 2400;
constexpr int kHeight = 1600;

class MemoryNeed : public testing::Test
{
protected:
    TemporaryFolder folder;

    // At least the peak, and not so much more that few jobs run at once.
    void expectNear(std::uint64_t need, std::vector<std::string> arguments,
                    const std::vector<std::filesystem::path>& frames)
    {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
        GTEST_SKIP() << "a sanitizer needs much more memory than the program";
#endif
        constexpr double kMost = 1.5;
        constexpr double kBytesPerMiB = 1024.0 * 1024.0;
        arguments.insert(arguments.end(), {"--threads", "2", "--json", "-o", "out.tif"});
        SCOPED_TRACE(testing::PrintToString(arguments));
        for (const auto& frame : frames)
            arguments.push_back(frame.string());
        const Finished run = runOrvo(arguments, {.workingFolder = folder.path()});
        ASSERT_EQ(run.exitCode, 0) << run.err;
        // As the program reports it: Finished::peakMemoryKiB begins with what this process had when it forked.
        const auto report = nlohmann::json::parse(run.out);
        const double peak = report.at("peak_memory_bytes").at("process").get<double>() / kBytesPerMiB;
        const double estimate = static_cast<double>(need) / kBytesPerMiB;
        EXPECT_GT(estimate, peak);
        EXPECT_LT(estimate, kMost * peak);
    }
};

} // namespace

TEST_F(MemoryNeed, OfAMerge)
{
    const auto frames = writeBracket(folder.path(), {.width = kWidth, .height = kHeight});
    jobs::HdrJobRequest request;
    request.frames = frames;
    expectNear(jobs::memoryNeed(request), {"hdr"}, frames);
    request.align = true;
    request.deghost = DeghostAmount::Low;
    expectNear(jobs::memoryNeed(request), {"hdr", "--align", "--deghost", "low"}, frames);
    request = {};
    request.frames = {frames[1]};
    expectNear(jobs::memoryNeed(request), {"hdr"}, request.frames);
}

TEST_F(MemoryNeed, OfAFocusStack)
{
    const auto frames = writeFocusSeries(folder.path(), {.width = kWidth, .height = kHeight, .frames = 4});
    jobs::StackJobRequest request;
    request.frames = frames;
    expectNear(jobs::memoryNeed(request), {"stack"}, frames);
    request.fast = true;
    expectNear(jobs::memoryNeed(request), {"stack", "--fast"}, frames);
    request.fast = false;
    request.align = false;
    expectNear(jobs::memoryNeed(request), {"stack", "--no-align"}, frames);
    request.align = true;
    request.deghost = DeghostAmount::Low;
    expectNear(jobs::memoryNeed(request), {"stack", "--deghost", "low"}, frames);
}

} // namespace orvo::test
