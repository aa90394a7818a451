#include "support/temporary_folder.hpp"

#include <orvo_logger/log_capture.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <fstream>
#include <sstream>
#include <thread>

using namespace orvo;
using testing::ElementsAre;
using testing::HasSubstr;

namespace {

std::string contents(const std::filesystem::path& path)
{
    std::ifstream in(path);
    std::stringstream all;
    all << in.rdbuf();
    return all.str();
}

} // namespace

TEST(LogStream, LevelsKeepTheirNumbers)
{
    EXPECT_EQ(static_cast<int>(LogMessageType::Trace), 0);
    EXPECT_EQ(static_cast<int>(LogMessageType::Progress), 2);
    EXPECT_EQ(static_cast<int>(LogMessageType::Warning), 3);
    EXPECT_EQ(static_cast<int>(LogMessageType::Error), 4);
    EXPECT_EQ(static_cast<int>(LogMessageType::Diagnostic), 6);
}

TEST(LogStream, JoinsPiecesOfAllKinds)
{
    const LogCapture capture;
    LOG(__orvolog() << LogMessageType::Warning << "a " << std::string("b ") << std::wstring(L"\u00e4 ") << 7 << " "
                    << 0.5f << " " << true);
    EXPECT_THAT(capture.texts(LogMessageType::Warning), ElementsAre("a b \xc3\xa4 7 0.5 1"));
}

TEST(LogStream, ALineWithoutLevelIsProgress)
{
    const LogCapture capture;
    LOG(__orvolog() << "x");
    ASSERT_EQ(capture.lines().size(), 1u);
    EXPECT_EQ(capture.lines()[0], (LogCapture::Line{LogMessageType::Progress, "x", 0}));
}

TEST(LogStream, MarksReachTheSink)
{
    const LogCapture capture;
    logstream line = __orvolog();
    line.marks = 16;
    LOG(line << LogMessageType::Diagnostic << "isRaw " << false << "\n");
    EXPECT_EQ(capture.lines().at(0), (LogCapture::Line{LogMessageType::Diagnostic, "isRaw 0\n", 16}));
}

TEST(LogStream, AFolderGetsTheFamilysFileName)
{
    const orvo::test::TemporaryFolder folder;
    setLogFile(folder.path());
    LOG(__orvolog() << LogMessageType::Error << "to disk");
    setLogFile({});
    LOG(__orvolog() << "after closing");
    const std::string text = contents(folder.path() / "log_orvo.txt");
    EXPECT_THAT(text, HasSubstr("error: to disk\n"));
    EXPECT_THAT(text, testing::Not(HasSubstr("after closing")));
}

TEST(LogStream, AFileThatCannotBeOpenedIsNamed)
{
    try {
        setLogFile("/proc/no_such_folder/x.txt");
        FAIL() << "no error";
    } catch (const std::runtime_error& error) {
        EXPECT_THAT(error.what(), HasSubstr("/proc/no_such_folder/x.txt"));
    }
}

TEST(LogStream, LinesOfManyThreadsStayWhole)
{
    const orvo::test::TemporaryFolder folder;
    setLogFile(folder.path() / "many.txt");
    const LogCapture capture;
    const std::string longText(300, 'x');
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&] {
            for (int i = 0; i < 50; ++i)
                LOG(__orvolog() << longText);
        });
    for (auto& thread : threads)
        thread.join();
    setLogFile({});
    ASSERT_EQ(capture.lines().size(), 200u);
    for (const auto& line : capture.lines())
        ASSERT_EQ(line.text, longText);
    std::istringstream file(contents(folder.path() / "many.txt"));
    int count = 0;
    for (std::string line; std::getline(file, line); ++count)
        ASSERT_TRUE(line.ends_with("info: " + longText));
    EXPECT_EQ(count, 200);
}

TEST(LogStream, ADroppedSinkReceivesNothing)
{
    int heard = 0;
    auto sink = addLogSink([&](const logstream&) { ++heard; });
    LOG(__orvolog() << "one");
    sink.reset();
    LOG(__orvolog() << "two");
    EXPECT_EQ(heard, 1);
}

TEST(FunctionSignature, NamesTheCaller) { EXPECT_THAT(functionSignature(), HasSubstr("TestBody")); }
