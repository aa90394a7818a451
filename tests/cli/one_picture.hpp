/// Commands that make one picture from another, on a file in a folder of its own.
#pragma once

#include "picture_commands.hpp"
#include "support/temporary_folder.hpp"

#include <orvo_io/image_reader.hpp>

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace orvo::test {

class OnePictureTest : public testing::Test
{
protected:
    /// `source` is in the folder; `result` is added to runs that are expected to fail, unless it is empty.
    OnePictureTest(std::string name, std::string source, std::string result = {})
        : command(std::move(name)), usualInput(std::move(source)), usualOutput(std::move(result))
    {}

    /// Runs the command on a file of the folder with more arguments.
    [[nodiscard]] Finished runOn(const std::string& file, std::vector<std::string> more) const
    {
        more.insert(more.begin(), {command, file});
        return runOrvo(more, {.workingFolder = folder.path()});
    }

    /// A picture of the folder, with the samples of its file; empty if it cannot be read.
    [[nodiscard]] std::shared_ptr<_ImageData<PixelRGB<float>>> read(const std::string& name) const
    {
        const auto image =
            ImageReader::instance().open({folder / name, {}}, {}, ImageReaderOpenFlag::None, nullptr, {}, -1);
        return image ? image->imageData({}, {}, true) : nullptr;
    }

    /// A run ends with `exitCode`, and its line has all `words`.
    void expectEnd(std::vector<std::string> more, int exitCode, const std::vector<std::string>& words) const
    {
        more.insert(more.begin(), {command, usualInput});
        if (!usualOutput.empty())
            more.insert(more.end(), {"-o", usualOutput});
        expectRefusal(more, folder.path(), exitCode, words);
    }

    TemporaryFolder folder;

private:
    std::string command;
    std::string usualInput;
    std::string usualOutput;
};

} // namespace orvo::test
