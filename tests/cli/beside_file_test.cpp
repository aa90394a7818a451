// Atomic output files.
#include "support/temporary_folder.hpp"

#include <jobs/beside_file.hpp>
#include <jobs/job.hpp>

#include <gmock/gmock.h>

#include <fstream>

namespace orvo::jobs {
namespace {

namespace fs = std::filesystem;
using test::TemporaryFolder;

std::size_t filesIn(const fs::path& folder)
{
    return static_cast<std::size_t>(std::distance(fs::directory_iterator(folder), fs::directory_iterator()));
}

void write(const fs::path& path, const std::string& text) { std::ofstream(path) << text; }

std::string read(const fs::path& path)
{
    std::ifstream file(path);
    return {std::istreambuf_iterator<char>(file), {}};
}

TEST(BesideFile, IsInTheFolderOfTheTargetWithItsEnding)
{
    const TemporaryFolder folder;
    const BesideFile file(folder / "picture.TIFF");
    EXPECT_EQ(fs::canonical(file.path().parent_path()), fs::canonical(folder.path()));
    EXPECT_EQ(file.path().extension(), ".TIFF");
    EXPECT_TRUE(file.path().is_absolute());
    EXPECT_FALSE(fs::exists(folder / "picture.TIFF"));
}

TEST(BesideFile, IsRemovedUnlessCommitted)
{
    const TemporaryFolder folder;
    {
        const BesideFile file(folder / "a.jpg");
        EXPECT_EQ(filesIn(folder.path()), 1u);
    }
    EXPECT_EQ(filesIn(folder.path()), 0u);
}

TEST(BesideFile, ReplacesTheTargetInOneStep)
{
    const TemporaryFolder folder;
    write(folder / "a.jpg", "old");
    BesideFile file(folder / "a.jpg");
    write(file.path(), "new");
    EXPECT_EQ(read(folder / "a.jpg"), "old");
    file.commit();
    EXPECT_EQ(read(folder / "a.jpg"), "new");
    EXPECT_EQ(filesIn(folder.path()), 1u);
}

TEST(BesideFile, TwoForOneTargetHaveDifferentNames)
{
    const TemporaryFolder folder;
    const BesideFile one(folder / "a.jpg");
    const BesideFile two(folder / "a.jpg");
    EXPECT_NE(one.path(), two.path());
}

TEST(BesideFile, MissingFolderIsNamed)
{
    const TemporaryFolder folder;
    try {
        const BesideFile file(folder / "nowhere/a.jpg");
        FAIL() << "there is no such folder";
    } catch (const FailureError& error) {
        EXPECT_EQ(error.failure().kind, FailureKind::Internal);
        EXPECT_THAT(error.what(), testing::HasSubstr("nowhere"));
    }
}

TEST(WriteBesideAndRename, LeavesNothingWhenTheWriterStopsOrThrows)
{
    const TemporaryFolder folder;
    const auto target = folder / "a.jpg";
    EXPECT_FALSE(writeBesideAndRename(target, [](const fs::path& path) {
        write(path, "half");
        return false;
    }));
    EXPECT_EQ(filesIn(folder.path()), 0u);
    EXPECT_THROW(writeBesideAndRename(target,
                                      [](const fs::path& path) -> bool {
                                          write(path, "half");
                                          throw std::runtime_error("disk full");
                                      }),
                 std::runtime_error);
    EXPECT_EQ(filesIn(folder.path()), 0u);
    EXPECT_TRUE(writeBesideAndRename(target, [](const fs::path& path) {
        write(path, "whole");
        return true;
    }));
    EXPECT_EQ(read(target), "whole");
}

TEST(RemoveUnfinishedFiles, RemovesOnlyFilesBeingWritten)
{
    const TemporaryFolder folder;
    BesideFile finished(folder / "finished.jpg");
    finished.commit();
    const BesideFile one(folder / "a.jpg");
    const BesideFile two(folder / "b.jpg");
    removeUnfinishedFiles();
    EXPECT_FALSE(fs::exists(one.path()));
    EXPECT_FALSE(fs::exists(two.path()));
    EXPECT_TRUE(fs::exists(folder / "finished.jpg"));
}

TEST(RemoveUnfinishedFiles, ReusesItsSlots)
{
    const TemporaryFolder folder;
    for (int i = 0; i < 100; ++i) // far more than there are slots
        const BesideFile file(folder / "a.jpg");
    const BesideFile last(folder / "a.jpg");
    removeUnfinishedFiles();
    EXPECT_FALSE(fs::exists(last.path()));
}

} // namespace
} // namespace orvo::jobs
