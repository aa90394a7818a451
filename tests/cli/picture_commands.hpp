/// The commands that make pictures from pictures, for tests of their common behaviour.
#pragma once

#include "brackets.hpp"
#include "program.hpp"

#include <gmock/gmock.h>

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <ostream>
#include <string>
#include <vector>

namespace orvo::test {

struct PictureCommand
{
    const char* name;
    const char* phase;  ///< its own, in reports
    const char* output; ///< of the result
    bool takesSeveral;  ///< files
    bool intoFolder;    ///< the output is one
};

inline constexpr PictureCommand kPictureCommands[] = {
    {.name = "stack", .phase = "stack", .output = "out.jpg", .takesSeveral = true, .intoFolder = false},
    {.name = "label", .phase = "label", .output = "out", .takesSeveral = true, .intoFolder = true},
    {.name = "upscale", .phase = "upscale", .output = "out.jpg", .takesSeveral = false, .intoFolder = false},
    {.name = "pano", .phase = "stitch", .output = "out.jpg", .takesSeveral = true, .intoFolder = false},
};

/// Has its own steps, so its outputs have separate tests; its inputs follow the same rules.
inline constexpr PictureCommand kHdrCommand{
    .name = "hdr", .phase = "blend", .output = "out.jpg", .takesSeveral = true, .intoFolder = false};

inline std::vector<PictureCommand> commandsThat(bool (*condition)(const PictureCommand&))
{
    std::vector<PictureCommand> commands;
    std::copy_if(std::begin(kPictureCommands), std::end(kPictureCommands), std::back_inserter(commands), condition);
    return commands;
}

/// Three pictures, alike in size, of which the command can make something.
inline std::vector<std::filesystem::path> writeGood(const std::filesystem::path& folder, const PictureCommand& command)
{
    if (command.name == std::string("hdr"))
        return writeBracket(folder);
    if (command.name == std::string("pano"))
        return writeViews(folder, {.views = 3});
    return writeFocusSeries(folder, {.width = 120, .height = 80, .frames = 3});
}

/// A run in `folder` ends with `exitCode`, one line that contains all `words` (and one more about the help after wrong
/// usage), and leaves no file.
inline void expectRefusal(const std::vector<std::string>& arguments, const std::filesystem::path& folder, int exitCode,
                          const std::vector<std::string>& words)
{
    // Small frames and the libraries need much less; a picture of 60000 x 60000 would need 43 GB.
    constexpr long kFewPicturesKiB = 600'000;
    const auto before = namesIn(folder);
    const Finished finished = runOrvo(arguments, {.workingFolder = folder});
    EXPECT_EQ(finished.exitCode, exitCode) << finished.err;
    const auto lines = finished.errLines();
    ASSERT_EQ(lines.size(), exitCode == 1 ? 1u : 2u) << finished.err;
    for (const std::string& word : words)
        EXPECT_THAT(lines[0], testing::HasSubstr(word));
    EXPECT_EQ(namesIn(folder), before) << "something was left behind";
    EXPECT_LT(finished.peakMemoryKiB, kFewPicturesKiB);
}

/// One of them in a folder with good frames.
class PictureCommandTest : public testing::TestWithParam<PictureCommand>
{
protected:
    /// Runs the command with `files` after the options.
    [[nodiscard]] Finished run(const std::string& output, const std::vector<std::string>& files,
                               const std::vector<std::string>& options = {}) const
    {
        return runOrvo(argumentsOf(output, files, options), {.workingFolder = folder.path()});
    }

    [[nodiscard]] static std::vector<std::string> argumentsOf(const std::string& output,
                                                              const std::vector<std::string>& files,
                                                              const std::vector<std::string>& options)
    {
        std::vector<std::string> arguments{GetParam().name, "--output=" + output};
        arguments.insert(arguments.end(), options.begin(), options.end());
        arguments.insert(arguments.end(), files.begin(), files.end());
        return arguments;
    }

    /// As many of the good frames as the command takes in addition to another file.
    [[nodiscard]] std::vector<std::string> goodBeside(const std::string& file) const
    {
        std::vector<std::string> files = GetParam().takesSeveral ? good : std::vector<std::string>();
        files.push_back(file);
        return files;
    }

    TemporaryFolder folder;
    std::vector<std::string> good = names(writeGood(folder.path(), GetParam()));
};

inline void PrintTo(const PictureCommand& command, std::ostream* out) { *out << command.name; }

inline std::string nameOfCommand(const testing::TestParamInfo<PictureCommand>& info) { return info.param.name; }

} // namespace orvo::test
