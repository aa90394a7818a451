/// The commands that make pictures of pictures, for tests of what holds for all of them.
#pragma once

#include "brackets.hpp"
#include "program.hpp"

#include <gtest/gtest.h>

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

inline std::vector<PictureCommand> commandsThat(bool (*condition)(const PictureCommand&))
{
    std::vector<PictureCommand> commands;
    std::copy_if(std::begin(kPictureCommands), std::end(kPictureCommands), std::back_inserter(commands), condition);
    return commands;
}

/// Three pictures, alike in size, of which the command can make something.
inline std::vector<std::filesystem::path> writeGood(const std::filesystem::path& folder, const PictureCommand& command)
{
    if (command.name == std::string("pano"))
        return writeViews(folder, {.views = 3});
    return writeFocusSeries(folder, {.width = 120, .height = 80, .frames = 3});
}

/// One of them in a folder with good frames.
class PictureCommandTest : public testing::TestWithParam<PictureCommand>
{
protected:
    /// Runs the command with `files` after the options.
    [[nodiscard]] Finished run(const std::string& output, const std::vector<std::string>& files,
                               const std::vector<std::string>& options = {}) const
    {
        std::vector<std::string> arguments{GetParam().name, "--output=" + output};
        arguments.insert(arguments.end(), options.begin(), options.end());
        arguments.insert(arguments.end(), files.begin(), files.end());
        return runOrvo(arguments, {.workingFolder = folder.path()});
    }

    /// As many of the good frames as the command takes beside another file.
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
