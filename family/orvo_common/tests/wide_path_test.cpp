// File names as wide text, without loss.
#include <orvo_common/wide_path.hpp>

#include <gtest/gtest.h>

using namespace orvo;

TEST(WidePath, ConvertsCharactersOfAllLengths)
{
    EXPECT_EQ(wideFromPath("pan.mp4"), L"pan.mp4");
    EXPECT_EQ(wideFromPath("\xc3\x9c \xe6\x9d\xb1 \xf0\x9f\x8e\xa5"), L"\u00dc \u6771 \U0001f3a5");
    EXPECT_EQ(wideFromPath(""), L"");
}

TEST(WidePath, EveryNameSurvivesTheRoundTrip)
{
    for (const std::string name :
         {"plain", "\xc3\x9c\xe6\x9d\xb1\xf0\x9f\x8e\xa5", "latin \xe4\xf6", "cut \xe6\x9d", "\xff\xfe",
          "long form \xc0\xaf", "surrogate \xed\xa0\x80", "beyond \xf7\xbf\xbf\xbf",
          "\x7f\xc2\x80\xdf\xbf\xe0\xa0\x80\xef\xbf\xbf\xf0\x90\x80\x80\xf4\x8f\xbf\xbf"})
        EXPECT_EQ(pathFromWide(wideFromPath(name)).native(), name);
}

TEST(PathText, IsTheNameItself)
{
    for (const std::string name : {"", "plain", "\xc3\x9c \xe6\x9d\xb1 \xf0\x9f\x8e\xa5", "latin \xe4\xf6"})
        EXPECT_EQ(pathText(name), name);
}

TEST(WidePath, InvalidBytesStayDistinct)
{
    EXPECT_EQ(wideFromPath("a\xe4z"), std::wstring({L'a', static_cast<wchar_t>(0xdce4), L'z'}));
    EXPECT_EQ(pathFromWide(std::wstring(1, static_cast<wchar_t>(0xd800))).native(), "\xef\xbf\xbd");
    EXPECT_EQ(pathFromWide(std::wstring(1, static_cast<wchar_t>(0x110000))).native(), "\xef\xbf\xbd");
}
