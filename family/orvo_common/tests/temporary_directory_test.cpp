#include <orvo_common/temporary_directory.hpp>

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <fstream>
#include <set>

namespace {

namespace fs = std::filesystem;

// A folder that replaces the system's temporary one in child processes.
class TemporaryDirectory : public testing::Test
{
protected:
    fs::path parent;

    void SetUp() override
    {
        std::string name = (fs::temp_directory_path() / "orvo_temp_test_XXXXXX").string();
        ASSERT_NE(::mkdtemp(name.data()), nullptr);
        parent = name;
    }
    void TearDown() override { fs::remove_all(parent); }

    // Runs `body` in a child process below `parent`. The child ends as `body` ends it, else through exit().
    template <typename Body>
    int inChild(const Body& body)
    {
        const pid_t child = ::fork();
        if (child == 0) {
            ::setenv("TMPDIR", parent.c_str(), 1);
            body();
            std::exit(0);
        }
        int status = 0;
        ::waitpid(child, &status, 0);
        return status;
    }

    [[nodiscard]] std::set<std::string> left() const
    {
        std::set<std::string> names;
        for (const auto& entry : fs::directory_iterator(parent))
            names.insert(entry.path().filename().string());
        return names;
    }
};

TEST_F(TemporaryDirectory, IsPrivateAndGoneAtTheEnd)
{
    const int status = inChild([this] {
        const fs::path folder = orvo::getTemporaryDirectory();
        struct stat facts = {};
        const bool well = ::stat(folder.c_str(), &facts) == 0 && (facts.st_mode & 0777) == 0700 &&
                          folder.parent_path() == parent && orvo::getTemporaryDirectory() == folder;
        std::ofstream(folder / "file") << "text";
        if (!well || !fs::exists(folder / "file"))
            std::_Exit(1);
    });
    EXPECT_EQ(status, 0);
    EXPECT_TRUE(left().empty());
}

TEST_F(TemporaryDirectory, WhatAKilledProcessLeavesIsSweptByTheNext)
{
    const int status = inChild([] {
        std::ofstream(orvo::getTemporaryDirectory() / "file") << "text";
        ::raise(SIGKILL);
    });
    ASSERT_TRUE(WIFSIGNALED(status));
    EXPECT_EQ(left().size(), 2u); // folder and lock
    EXPECT_EQ(inChild([] { (void)orvo::getTemporaryDirectory(); }), 0);
    EXPECT_TRUE(left().empty());
}

TEST_F(TemporaryDirectory, TheSweepLeavesTheLivingAndTheForeignAlone)
{
    fs::create_directory(parent / "orvo-notes");
    std::ofstream(parent / "orvo-notes.lock") << "";
    fs::create_directory(parent / "elsewhere");
    std::ofstream(parent / "elsewhere" / "file") << "";
    const std::string prefix = "orvo-" + std::to_string(::getuid()) + "-";
    fs::create_directory_symlink(parent / "elsewhere", parent / (prefix + "link"));
    std::ofstream(parent / (prefix + "link.lock")) << ""; // dead, but its folder is a link
    const int status = inChild([this] {
        const fs::path folder = orvo::getTemporaryDirectory();
        const pid_t other = ::fork();
        if (other == 0)
            std::_Exit(orvo::sweepTemporaryDirectories(parent) == 0 ? 0 : 1);
        int sweep = 0;
        ::waitpid(other, &sweep, 0);
        if (sweep != 0 || !fs::exists(folder))
            std::_Exit(1);
    });
    EXPECT_EQ(status, 0);
    EXPECT_TRUE(fs::exists(parent / "elsewhere" / "file"));
    EXPECT_TRUE(left().contains("orvo-notes"));
    EXPECT_TRUE(left().contains("orvo-notes.lock"));
}

TEST_F(TemporaryDirectory, APlaceThatCannotBeWrittenGivesAPathAllTheSame)
{
    const int status = inChild([this] {
        ::setenv("TMPDIR", (parent / "file").c_str(), 1); // not a folder
        std::ofstream(parent / "file") << "";
        if (orvo::getTemporaryDirectory().empty())
            std::_Exit(1);
    });
    EXPECT_EQ(status, 0);
    EXPECT_EQ(left(), std::set<std::string>{"file"});
}

} // namespace
