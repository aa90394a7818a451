// Ctrl-C.
#include "brackets.hpp"
#include "program.hpp"

#include <gmock/gmock.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <thread>

namespace orvo::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

/// Runs the program in `folder` with -o out.tif, sends `signals` once it printed `line`, and expects that it is
/// cancelled and leaves no file. On a busy machine the program may be done before a signal arrives; then it is run
/// again.
Finished interrupted(const std::vector<std::string>& arguments, const std::filesystem::path& folder,
                     const std::string& line, const std::vector<int>& signals)
{
    constexpr int kTries = 5;
    const auto before = namesIn(folder);
    Finished run;
    for (int i = 0; i < kTries; ++i) {
        Program program(arguments, {.workingFolder = folder});
        program.waitFor(line);
        for (const int signal : signals)
            program.send(signal);
        run = program.wait();
        if (run.exitCode != 0)
            break;
        std::filesystem::remove(folder / "out.tif");
    }
    EXPECT_EQ(run.exitCode, 130) << run.err;
    EXPECT_EQ(namesIn(folder), before);
    return run;
}

class Interrupt : public testing::Test
{
protected:
    /// Frames that take a while, so that the signal comes in the middle.
    static constexpr FrameSettings kLarge{.width = 1200, .height = 800};

    /// Starts a merge, sends `signals` once `line` was printed, and expects that nothing is left.
    void expectCancelled(const std::string& line, const std::vector<int>& signals)
    {
        std::vector<std::string> arguments{"hdr", "-o", "out.tif", "--align", "--deghost", "2"};
        arguments.insert(arguments.end(), bracket.begin(), bracket.end());
        const Finished run = interrupted(arguments, folder.path(), line, signals);
        if (signals.size() == 1) {
            EXPECT_THAT(run.errLines(), ElementsAre(HasSubstr("cancelled")));
        }
    }

    TemporaryFolder folder;
    std::vector<std::string> bracket = names(writeBracket(folder.path(), kLarge));
};

TEST_F(Interrupt, WhileLoading) { expectCancelled("reading", {SIGINT}); }

TEST_F(Interrupt, WhileMerging) { expectCancelled("matching", {SIGINT}); }

TEST_F(Interrupt, WhileBlending) { expectCancelled("blending", {SIGINT}); }

TEST_F(Interrupt, ByTheSystem)
{
    expectCancelled("reading", {SIGTERM});
    expectCancelled("reading", {SIGHUP});
}

TEST(InterruptOpaqueStep, EndsAtOnce)
{
    const TemporaryFolder folder;
    writeFrame(folder / "in.jpg", {.width = 2400, .height = 1600});
    for (const int signal : {SIGINT, SIGTERM}) {
        const TemporaryFolder elsewhere;
        const Finished run = interrupted({"label", "in.jpg", "-o", "out", "--log", elsewhere / "log.txt"},
                                         folder.path(), "labelling", {signal});
        EXPECT_THAT(run.errLines(), ElementsAre("orvo: cancelled"));
        // After the step the log would contain the end of the job.
        EXPECT_THAT(fileText(elsewhere / "log.txt"), Not(HasSubstr("orvo label:")));
    }
}

TEST(InterruptUpscale, EndsAtTheNextTile)
{
    const TemporaryFolder folder;
    writeFrame(folder / "in.jpg", {.width = 2400, .height = 1600});
    const TemporaryFolder elsewhere;
    const Finished run = interrupted({"upscale", "in.jpg", "-o", "out.tif", "--log", elsewhere / "log.txt"},
                                     folder.path(), "enlarging", {SIGINT});
    EXPECT_THAT(run.errLines(), ElementsAre("orvo: cancelled"));
    EXPECT_THAT(fileText(elsewhere / "log.txt"), HasSubstr("orvo upscale: cancelled"));
}

TEST(InterruptStack, EndsAtTheNextFrame)
{
    const TemporaryFolder folder;
    const auto series = names(writeFocusSeries(folder.path(), {.width = 900, .height = 600, .frames = 6}));
    const TemporaryFolder elsewhere;
    std::vector<std::string> arguments{"stack", "-o", "out.tif", "--log", elsewhere / "log.txt"};
    arguments.insert(arguments.end(), series.begin(), series.end());
    const Finished run = interrupted(arguments, folder.path(), "stacking", {SIGINT});
    EXPECT_THAT(run.errLines(), ElementsAre("orvo: cancelled"));
    EXPECT_THAT(fileText(elsewhere / "log.txt"), HasSubstr("orvo stack: cancelled"));
}

/// Interrupts orvo pano at several times after it printed `line`.
void expectCancelledAtAnyTime(const std::vector<std::string>& options, const std::string& line)
{
    const TemporaryFolder folder;
    const auto views = names(writeViews(folder.path(), {.width = 900, .height = 600, .views = 4}));
    const auto before = namesIn(folder.path());
    std::vector<std::string> arguments{"pano", "-o", "out.tif"};
    arguments.insert(arguments.end(), options.begin(), options.end());
    arguments.insert(arguments.end(), views.begin(), views.end());
    constexpr std::chrono::milliseconds kStep(250); // reading, registering and drawing take longer than that
    for (int steps = 0; steps < 4; ++steps) {
        Program program(arguments, {.workingFolder = folder.path()});
        program.waitFor(line);
        std::this_thread::sleep_for(steps * kStep);
        program.send(SIGINT);
        const Finished run = program.wait();
        if (run.exitCode == 0) { // a fast machine finished first
            std::filesystem::remove(folder / "out.tif");
            EXPECT_GT(steps, 0);
            continue;
        }
        EXPECT_EQ(run.exitCode, 130) << run.err;
        EXPECT_THAT(run.errLines(), ElementsAre("orvo: cancelled"));
        EXPECT_EQ(namesIn(folder.path()), before);
    }
}

TEST(InterruptPano, AtAnyTimeLeavesNothing) { expectCancelledAtAnyTime({}, "stitching"); }

TEST(InterruptPano, WhileTheComposerWorks)
{
    const std::vector<std::string> view{"--straighten", "--crop", "auto"};
    expectCancelledAtAnyTime(view, "reading");
    expectCancelledAtAnyTime(view, "stitching");
    // Four brackets of one frame: merging is part of reading.
    expectCancelledAtAnyTime({"--brackets", "--bracket-size", "1"}, "reading");
}

TEST(InterruptStuckStep, EndsAfterAWhile)
{
    if (std::string(ORVO_STUCK_DECODER).empty())
        GTEST_SKIP() << "a sanitizer must be loaded before other libraries";
    const TemporaryFolder folder;
    const auto bracket = names(writeBracket(folder.path()));
    const auto before = namesIn(folder.path());
    ::setenv("LD_PRELOAD", ORVO_STUCK_DECODER, 1);
    std::vector<std::string> arguments{"hdr", "-o", "out.tif"};
    arguments.insert(arguments.end(), bracket.begin(), bracket.end());
    Program program(arguments, {.workingFolder = folder.path()});
    ::unsetenv("LD_PRELOAD");
    program.waitFor("checking");
    std::this_thread::sleep_for(std::chrono::seconds(1)); // the decoder starts right after
    program.send(SIGTERM);
    const Finished run = program.wait();
    EXPECT_EQ(run.exitCode, 130) << run.err;
    EXPECT_THAT(run.errLines(), ElementsAre("orvo: cancelled"));
    EXPECT_EQ(namesIn(folder.path()), before);
}

TEST_F(Interrupt, TwiceEndsAtOnce) { expectCancelled("reading", {SIGINT, SIGTERM}); }

} // namespace
} // namespace orvo::test
