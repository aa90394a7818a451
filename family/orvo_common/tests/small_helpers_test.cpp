#include <orvo_common/console_trace.hpp>
#include <orvo_common/scoped_timer.hpp>
#include <orvo_common/text.hpp>
#include <orvo_common/uuid.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>

TEST(GenerateUUID, IsFreshAndWellFormed)
{
    const std::string a = orvo::generateUUID();
    EXPECT_THAT(a, testing::MatchesRegex("[0-9a-f]{8}-[0-9a-f]{4}-4[0-9a-f]{3}-[89ab][0-9a-f]{3}-[0-9a-f]{12}"));
    EXPECT_NE(a, orvo::generateUUID());
}

TEST(NarrowText, IsUtf8)
{
    EXPECT_EQ(orvo::ws2s(L"plain"), "plain");
    EXPECT_EQ(orvo::ws2s(L"\u00e4\u20ac\U0001F4F7"), "\xc3\xa4\xe2\x82\xac\xf0\x9f\x93\xb7");
    EXPECT_EQ(orvo::ws2s({static_cast<wchar_t>(0xD800)}), "\xef\xbf\xbd");
}

TEST(IsFloatEqual, ToleratesRoundingOnly)
{
    EXPECT_TRUE(orvo::isFloatEqual(0.1f + 0.2f, 0.3f));
    EXPECT_TRUE(orvo::isFloatEqual(1e6f, 1e6f + 1));
    EXPECT_FALSE(orvo::isFloatEqual(0.3f, 0.301f));
    const float nan = std::numeric_limits<float>::quiet_NaN();
    EXPECT_FALSE(orvo::isFloatEqual(nan, nan));
}

TEST(ConsoleTrace, ReadsItsQuietByteBeforeEachPiece)
{
    const unsigned char before = grfx::cout.quiet;
    testing::internal::CaptureStdout();
    grfx::cout.quiet = 0;
    grfx::cout << "a " << 1;
    grfx::cout.quiet = 1;
    grfx::cout << "hidden";
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "a 1");
    grfx::cout.quiet = before;
}

TEST(ScopedTimer, ReportsItsScope)
{
    const unsigned char before = grfx::cout.quiet;
    grfx::cout.quiet = 0;
    testing::internal::CaptureStdout();
    {
        const orvo::ScopedTimer timer("blend", 0);
    }
    EXPECT_THAT(testing::internal::GetCapturedStdout(), testing::MatchesRegex("blend: [0-9]+ ms\n"));
    grfx::cout.quiet = before;
}
