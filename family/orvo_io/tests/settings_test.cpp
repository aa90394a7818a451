#include "test_files.hpp"

#include <orvo_io/settings.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <thread>

namespace orvo::test {
namespace {

TEST(SettingsTest, KeepsValuesByType)
{
    Settings settings;
    EXPECT_EQ(settings.get<int>("a.b", 7), 7);
    settings.set<int>("a.b", 3);
    settings.set<bool>("DebugDrawer.enable", true);
    settings.set<std::string>("name", "text");
    settings.set<double>("half", 0.5);
    EXPECT_EQ(settings.get<int>("a.b", 7), 3);
    EXPECT_TRUE(settings.get<bool>("DebugDrawer.enable", false));
    EXPECT_EQ(settings.get<std::string>("name", ""), "text");
    EXPECT_EQ(settings.get<double>("half", 0.0), 0.5);
    EXPECT_EQ(settings.get<double>("a.b", 0.0), 3.0) << "an integer is a number";
    EXPECT_FALSE(settings.get<bool>("a.b", false)) << "but not a boolean";
    EXPECT_EQ(settings.get<int>("half", 9), 9);
    settings.remove("a.b");
    EXPECT_EQ(settings.get<int>("a.b", 7), 7);
}

TEST(SettingsTest, LoadsFilesWholeOrNotAtAll)
{
    const TemporaryFolder folder;
    std::ofstream(folder / "good.json")
        << R"({"DebugDrawer": {"enable": true, "depth": {"max": 4}}, "large": 5000000000})";
    std::ofstream(folder / "broken.json") << R"({"kept": 2, )";
    std::ofstream(folder / "list.json") << "[1, 2]";
    Settings settings;
    settings.set<int>("kept", 1);
    settings.set<int>("DebugDrawer.depth.max", 1);
    settings.load(folder / "good.json");
    EXPECT_TRUE(settings.get<bool>("DebugDrawer.enable", false));
    EXPECT_EQ(settings.get<int>("DebugDrawer.depth.max", 0), 4);
    EXPECT_EQ(settings.get<int>("kept", 0), 1);
    EXPECT_EQ(settings.get<int>("large", -1), -1) << "does not fit";
    for (const char* const name : {"broken.json", "list.json", "missing.json", ""}) {
        try {
            settings.load(folder / name);
            ADD_FAILURE() << name;
        } catch (const std::runtime_error& error) {
            EXPECT_THAT(error.what(), ::testing::HasSubstr((folder / name).string()));
        }
    }
    EXPECT_EQ(settings.get<int>("kept", 0), 1);
}

TEST(SettingsTest, RefusesTooManyLevels)
{
    const TemporaryFolder folder;
    const auto nested = [](int levels, const std::string& opening, const std::string& closing) {
        std::string text;
        for (int level = 0; level < levels; ++level)
            text += opening;
        text += '1';
        for (int level = 0; level < levels; ++level)
            text += closing;
        return text;
    };
    Settings settings;
    std::ofstream(folder / "allowed.json") << nested(64, R"({"a":)", "}");
    settings.load(folder / "allowed.json");
    std::string key = "a";
    for (int level = 1; level < 64; ++level)
        key += ".a";
    EXPECT_EQ(settings.get<int>(key, 0), 1);
    // The last ones would overflow the stack of any thread.
    const std::string texts[] = {nested(65, R"({"a":)", "}"), R"({"a":)" + nested(64, "[", "]") + '}',
                                 nested(100'000, R"({"a":)", "}"), R"({"a":)" + nested(100'000, "[", "]") + '}'};
    for (const std::string& text : texts) {
        std::ofstream(folder / "deep.json") << text;
        try {
            settings.load(folder / "deep.json");
            ADD_FAILURE() << text.substr(0, 40);
        } catch (const std::runtime_error& error) {
            EXPECT_EQ(error.what(), "Settings::load: " + (folder / "deep.json").string() +
                                        ": expected at most 64 levels, found more");
        }
    }
}

TEST(SettingsTest, ManyThreads)
{
    Settings& settings = orvosettings();
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&settings, t] {
            const std::string key = "thread." + std::to_string(t);
            for (int i = 0; i < 500; ++i) {
                settings.set<int>(key, i);
                EXPECT_EQ(settings.get<int>(key, -1), i);
            }
        });
    for (auto& thread : threads)
        thread.join();
    for (int t = 0; t < 4; ++t)
        settings.remove("thread." + std::to_string(t));
}

} // namespace
} // namespace orvo::test
