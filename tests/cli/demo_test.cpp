// orvo demo
#include "program.hpp"
#include "support/temporary_folder.hpp"

#include <orvo_io/image_reader.hpp>

#include <gmock/gmock.h>

#include <filesystem>

namespace orvo::test {
namespace {

namespace fs = std::filesystem;
using testing::AllOf;
using testing::HasSubstr;
using testing::IsEmpty;

std::vector<fs::path> picturesBelow(const fs::path& folder)
{
    std::vector<fs::path> pictures;
    for (const auto& entry : fs::recursive_directory_iterator(folder))
        if (entry.is_regular_file())
            pictures.push_back(entry.path());
    return pictures;
}

TEST(Demo, CreatesPicturesRunsTheCommandsAndExplainsEachFile)
{
    const TemporaryFolder folder;
    const Finished run = runOrvo({"demo", folder / "deep/demo", "--size", "192"});
    ASSERT_EQ(run.exitCode, 0) << run.err;
    EXPECT_THAT(run.err, IsEmpty());
    const auto pictures = picturesBelow(folder.path());
    // Three brackets of at least three frames, eight of a focus series, a small one, four panorama views, a noisy one,
    // and the results.
    ASSERT_GE(pictures.size(), 9u + 8u + 1u + 4u + 1u + 9u);
    for (const fs::path& picture : pictures) {
        EXPECT_THAT(run.out, HasSubstr(picture.string()));
        const auto metadata = ImageReader::readMetadata(picture);
        ASSERT_TRUE(metadata) << picture;
        if (picture.string().find("around") == std::string::npos &&
            picture.string().find("expanded") == std::string::npos) {
            EXPECT_LE(metadata->size.width, 192);
        }
    }
    for (const char* const ending : {".jpg", ".tif", ".dng"})
        EXPECT_THAT(run.out, HasSubstr(ending));
    for (const char* const what :
         {"merged: ", "stacked: ", "enlarged: ", "stitched: ", "erased: ", "expanded: ", "restored: "})
        EXPECT_THAT(run.out, HasSubstr(what));
    EXPECT_EQ(ImageReader::readMetadata(folder / "deep/demo/small-enlarged.jpg")->size.width, 128);
    // Four views of 400 pixels, 22 degrees apart: 66 degrees at 400 pixels a radian, and half a view on each side.
    EXPECT_NEAR(ImageReader::readMetadata(folder / "deep/demo/around-stitched.jpg")->size.width, 835, 40);
}

TEST(Demo, KeepLeavesFramesThatAreThere)
{
    const TemporaryFolder folder;
    ASSERT_EQ(runOrvo({"demo", folder.path(), "--size", "160"}).exitCode, 0);
    std::vector<fs::file_time_type> before;
    std::vector<fs::path> frames;
    for (const fs::path& picture : picturesBelow(folder.path()))
        if (picture.parent_path() != folder.path()) // where the results are
            frames.push_back(picture);
    for (const fs::path& frame : frames)
        before.push_back(fs::last_write_time(frame));
    ASSERT_EQ(runOrvo({"demo", folder.path(), "--keep", "--size", "160"}).exitCode, 0);
    for (std::size_t i = 0; i < frames.size(); ++i)
        EXPECT_EQ(fs::last_write_time(frames[i]), before[i]) << frames[i];
    ASSERT_EQ(runOrvo({"demo", folder.path(), "--size", "160"}).exitCode, 0);
    EXPECT_NE(fs::last_write_time(frames[0]), before[0]);
}

// The pictures of the documentation are made by docs/images/make.sh from what this test makes smaller.
TEST(Demo, SheetsAreThePicturesOfTheDocumentation)
{
    const TemporaryFolder folder;
    const Finished run = runOrvo({"demo", folder.path(), "--size", "192", "--sheets"});
    ASSERT_EQ(run.exitCode, 0) << run.err;
    constexpr std::uintmax_t kLargest = 60'000; // bytes
    constexpr std::uintmax_t kLargestSum = 600'000;
    std::uintmax_t sum = 0;
    std::vector<std::string> shown;
    for (const auto& entry : fs::directory_iterator(ORVO_IMAGES))
        if (entry.path().extension() == ".jpg") {
            shown.push_back(entry.path().filename());
            EXPECT_LT(entry.file_size(), kLargest) << entry.path();
            sum += entry.file_size();
        }
    EXPECT_LT(sum, kLargestSum);
    EXPECT_THAT(namesIn(folder / "sheets"), testing::UnorderedElementsAreArray(shown));
    for (const std::string& name : shown) {
        EXPECT_THAT(run.out, HasSubstr((folder / "sheets" / name).string()));
        const auto metadata = ImageReader::readMetadata(folder / "sheets" / name);
        ASSERT_TRUE(metadata) << name;
        EXPECT_EQ(metadata->size.width, ImageReader::readMetadata(fs::path(ORVO_IMAGES) / name)->size.width);
    }
}

TEST(Demo, SizeOutOfRange)
{
    const TemporaryFolder folder;
    const Finished run = runOrvo({"demo", folder / "demo", "--size", "3"});
    EXPECT_EQ(run.exitCode, 2);
    EXPECT_THAT(run.err, AllOf(HasSubstr("--size"), HasSubstr("found 3")));
    EXPECT_FALSE(fs::exists(folder / "demo"));
}

TEST(Demo, FolderThatCannotBeCreated)
{
    const Finished run = runOrvo({"demo", "/proc/demo", "--size", "160"});
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_EQ(run.errLines().size(), 1u);
    EXPECT_THAT(run.err, HasSubstr("/proc/demo"));
}

} // namespace
} // namespace orvo::test
