#include <orvo_common/text.hpp>

#include <algorithm>
#include <cmath>

namespace orvo {
namespace {

// A few roundings of single precision, so that sums in a different order still compare equal.
constexpr float kRelativeTolerance = 1e-5f;

void appendUtf8(std::string& text, char32_t c)
{
    const auto byte = [&](char32_t bits) { text.push_back(static_cast<char>(bits)); };
    if (c < 0x80) {
        byte(c);
    } else if (c < 0x800) {
        byte(0xC0 | (c >> 6));
        byte(0x80 | (c & 0x3F));
    } else if (c < 0x10000) {
        byte(0xE0 | (c >> 12));
        byte(0x80 | ((c >> 6) & 0x3F));
        byte(0x80 | (c & 0x3F));
    } else {
        byte(0xF0 | (c >> 18));
        byte(0x80 | ((c >> 12) & 0x3F));
        byte(0x80 | ((c >> 6) & 0x3F));
        byte(0x80 | (c & 0x3F));
    }
}

} // namespace

std::string ws2s(const std::wstring& wide)
{
    std::string text;
    text.reserve(wide.size());
    for (const wchar_t unit : wide) {
        const auto c = static_cast<char32_t>(unit);
        const bool isCharacter = c < 0xD800 || (c > 0xDFFF && c <= 0x10FFFF);
        appendUtf8(text, isCharacter ? c : U'\uFFFD');
    }
    return text;
}

bool isFloatEqual(float a, float b)
{
    return std::abs(a - b) <= kRelativeTolerance * std::max({1.0f, std::abs(a), std::abs(b)});
}

} // namespace orvo
