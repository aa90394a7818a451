#include "glyphs.hpp"

#include <array>

namespace orvo::scenes {

namespace {

constexpr int kColumns = 5;
constexpr int kRows = 7;
constexpr float kAdvance = 6.0f; // grid columns from letter to letter

using Glyph = std::array<unsigned char, kRows>; // a row each, the leftmost column in bit 4

constexpr std::string_view kKnown = "ABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789+-";
constexpr std::array<Glyph, 38> kGlyphs = {{
    {14, 17, 17, 31, 17, 17, 17}, {30, 17, 17, 30, 17, 17, 30}, {15, 16, 16, 16, 16, 16, 15},
    {30, 17, 17, 17, 17, 17, 30}, {31, 16, 16, 30, 16, 16, 31}, {31, 16, 16, 30, 16, 16, 16},
    {15, 16, 16, 19, 17, 17, 15}, {17, 17, 17, 31, 17, 17, 17}, {14, 4, 4, 4, 4, 4, 14},
    {1, 1, 1, 1, 1, 17, 14},      {17, 18, 20, 24, 20, 18, 17}, {16, 16, 16, 16, 16, 16, 31},
    {17, 27, 21, 21, 17, 17, 17}, {17, 25, 25, 21, 19, 19, 17}, {14, 17, 17, 17, 17, 17, 14},
    {30, 17, 17, 30, 16, 16, 16}, {14, 17, 17, 17, 21, 18, 13}, {30, 17, 17, 30, 20, 18, 17},
    {15, 16, 16, 14, 1, 1, 30},   {31, 4, 4, 4, 4, 4, 4},       {17, 17, 17, 17, 17, 17, 14},
    {17, 17, 17, 17, 10, 10, 4},  {17, 17, 17, 21, 21, 27, 17}, {17, 17, 10, 4, 10, 17, 17},
    {17, 17, 10, 4, 4, 4, 4},     {31, 1, 2, 4, 8, 16, 31},     {14, 17, 19, 21, 25, 17, 14},
    {4, 12, 4, 4, 4, 4, 14},      {14, 17, 1, 6, 8, 16, 31},    {30, 1, 1, 14, 1, 1, 30},
    {2, 6, 10, 18, 31, 2, 2},     {31, 16, 30, 1, 1, 17, 14},   {6, 8, 16, 30, 17, 17, 14},
    {31, 1, 2, 4, 4, 8, 8},       {14, 17, 17, 14, 17, 17, 14}, {14, 17, 17, 15, 1, 2, 12},
    {0, 4, 4, 31, 4, 4, 0},       {0, 0, 0, 31, 0, 0, 0},
}};

bool isSet(const Glyph& glyph, int column, int row)
{
    return column >= 0 && column < kColumns && row >= 0 && row < kRows &&
           ((glyph[static_cast<std::size_t>(row)] >> (kColumns - 1 - column)) & 1) != 0;
}

} // namespace

float textAspect(std::string_view text) { return static_cast<float>(text.size()) * kAdvance / kRows; }

float textInk(std::string_view text, const Box& line, const Spot& p)
{
    const float unit = line.height() / kRows;
    const float across = (p.u - line.left) / unit;
    const float down = (p.v - line.top) / unit;
    if (across < -0.5f || down < -0.5f || down > kRows + 0.5f)
        return 0.0f;
    const int letter = cell((across + 0.5f) / kAdvance);
    if (letter >= static_cast<int>(text.size()))
        return 0.0f;
    const std::size_t index = kKnown.find(text[static_cast<std::size_t>(letter)]);
    if (index == std::string_view::npos)
        return 0.0f;
    // between the four nearest grid squares, then sharpened to an edge of one pixel: gives strokes round corners
    const float x = across - static_cast<float>(letter) * kAdvance - 0.5f;
    const float y = down - 0.5f;
    const int column = cell(x);
    const int row = cell(y);
    const float s = x - static_cast<float>(column);
    const float t = y - static_cast<float>(row);
    const auto at = [&](int dx, int dy) { return isSet(kGlyphs[index], column + dx, row + dy) ? 1.0f : 0.0f; };
    const float level = mix(mix(at(0, 0), at(1, 0), s), mix(at(0, 1), at(1, 1), s), t);
    return limited((level - 0.5f) * std::max(1.0f, unit / p.px) + 0.5f);
}

} // namespace orvo::scenes
