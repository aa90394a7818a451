// Results that cannot be made or written: reported before the work, with the message that would follow it.
#include "support/files.hpp"
#include "support/temporary_folder.hpp"

#include <jobs/hdr_job.hpp>
#include <jobs/label_job.hpp>
#include <jobs/stack_job.hpp>
#include <jobs/upscale_job.hpp>
#include <orvo_io/image_writer.hpp>

#include <gmock/gmock.h>

#include <stdexcept>

namespace orvo::jobs {
namespace {

using testing::HasSubstr;

/// The writer's message for such a picture.
std::string wordsOfTheWriter(const std::filesystem::path& path, _Size<int> size)
{
    try {
        writeImage(path, _ImageData<PixelRGB<float>>(size, ColorProfileType::melissaRGB()), writeSettingsForPath(path));
    } catch (const std::invalid_argument& error) {
        return error.what();
    }
    return "the writer takes it";
}

class PictureLimits : public testing::Test
{
protected:
    std::filesystem::path picture(const std::string& name, _Size<int> size) const
    {
        return test::writtenTo(folder / name, *test::plain(size.width, size.height, 0.4f));
    }

    /// It ended during the check, with the writer's message, and left no file.
    static void expectEarlyEnd(const RunReport& report, const std::filesystem::path& output, _Size<int> size)
    {
        EXPECT_EQ(report.outcome, JobOutcome::Failed);
        EXPECT_EQ(report.message, wordsOfTheWriter(output, size));
        ASSERT_FALSE(report.steps.empty());
        EXPECT_EQ(report.steps.back().step, JobStep::Check) << "the work began";
        EXPECT_FALSE(std::filesystem::exists(output));
    }

    test::TemporaryFolder folder;
};

TEST_F(PictureLimits, UpscaleToJpeg)
{
    UpscaleJobRequest request;
    request.output = folder / "out.jpg";
    for (const bool upright : {true, false}) {
        request.source = picture("in.tif", upright ? _Size<int>(2, 32751) : _Size<int>(32751, 2));
        expectEarlyEnd(upscaleJob(request), request.output, upright ? _Size<int>(4, 65502) : _Size<int>(65502, 4));
    }
    request.source = picture("in.tif", {4096, 2});
    request.passes = 4;
    expectEarlyEnd(upscaleJob(request), request.output, {65536, 32});
}

TEST_F(PictureLimits, UpscaleUpToTheLimitAndInOtherFormats)
{
    UpscaleJobRequest request;
    request.faces = false;
    request.source = picture("in.tif", {32750, 2});
    request.output = folder / "out.jpg";
    const UpscaleJobResult most = upscaleJob(request);
    EXPECT_TRUE(most.done()) << most.message;
    EXPECT_EQ(most.size, (_Size<int>{65500, 4}));
    request.source = picture("in.tif", {32751, 2});
    for (const char* const name : {"out.png", "out.tif", "out.exr"}) {
        request.output = folder / name;
        EXPECT_TRUE(upscaleJob(request).done()) << name;
    }
}

TEST_F(PictureLimits, UpscaleToMorePixelsThanPossible)
{
    UpscaleJobRequest request;
    request.source = picture("in.tif", {2400, 1700});
    request.output = folder / "out.tif";
    request.passes = 4;
    const UpscaleJobResult result = upscaleJob(request);
    EXPECT_EQ(result.outcome, JobOutcome::Failed);
    EXPECT_EQ(result.message, request.source.string() +
                                  ": 2400 x 1700 pixels enlarged 16 times would be 38400 x 27200, 1045 million "
                                  "pixels, but at most 1000 million can be made; take fewer passes or a smaller "
                                  "picture");
    EXPECT_EQ(result.steps.back().step, JobStep::Check);
}

TEST_F(PictureLimits, FramesOfAStackABracketAndLabels)
{
    constexpr _Size<int> kLong{65501, 2};
    const std::filesystem::path output = folder / "out.jpg";
    StackJobRequest stack;
    stack.frames = {picture("a.tif", kLong), picture("b.tif", kLong)};
    stack.output = output;
    expectEarlyEnd(stackJob(stack), output, kLong);
    HdrJobRequest merge;
    merge.frames = stack.frames;
    merge.output = output;
    expectEarlyEnd(hdrJob(merge), output, kLong);
    LabelJobRequest label;
    label.frames = {picture("c.tif", {300, 200}), stack.frames[1]};
    label.folder = folder / "labelled";
    expectEarlyEnd(labelJob(label), label.folder / "b.jpg", kLong);
    EXPECT_FALSE(std::filesystem::exists(label.folder));
}

} // namespace
} // namespace orvo::jobs
