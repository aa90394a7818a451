#include <orvo_io/base64.hpp>

#include <array>
#include <cstddef>
#include <cstdint>

namespace orvo {
namespace {

constexpr std::string_view kAlphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr std::uint8_t kNone = 255;

constexpr std::array<std::uint8_t, 256> makeValues()
{
    std::array<std::uint8_t, 256> values{};
    values.fill(kNone);
    for (std::size_t i = 0; i < kAlphabet.size(); ++i)
        values[static_cast<unsigned char>(kAlphabet[i])] = static_cast<std::uint8_t>(i);
    return values;
}

constexpr auto kValues = makeValues();

constexpr bool isSpace(char c) { return c == ' ' || c == '\n' || c == '\r' || c == '\t'; }

} // namespace

std::string base64Of(std::span<const unsigned char> bytes)
{
    std::string text((bytes.size() + 2) / 3 * 4, '=');
    char* out = text.data();
    std::size_t i = 0;
    for (; i + 3 <= bytes.size(); i += 3) {
        const auto group = static_cast<std::uint32_t>(bytes[i] << 16 | bytes[i + 1] << 8 | bytes[i + 2]);
        *out++ = kAlphabet[group >> 18];
        *out++ = kAlphabet[group >> 12 & 63];
        *out++ = kAlphabet[group >> 6 & 63];
        *out++ = kAlphabet[group & 63];
    }
    if (const std::size_t rest = bytes.size() - i; rest > 0) {
        const auto group = static_cast<std::uint32_t>(bytes[i] << 16 | (rest > 1 ? bytes[i + 1] << 8 : 0));
        *out++ = kAlphabet[group >> 18];
        *out++ = kAlphabet[group >> 12 & 63];
        if (rest > 1)
            *out++ = kAlphabet[group >> 6 & 63];
    }
    return text;
}

std::optional<std::vector<unsigned char>> bytesOfBase64(std::string_view text)
{
    std::vector<unsigned char> bytes;
    bytes.reserve(text.size() / 4 * 3 + 3);
    std::uint32_t group = 0;
    int digits = 0;
    int padding = 0;
    for (const char c : text) {
        if (isSpace(c))
            continue;
        if (c == '=') {
            ++padding;
            continue;
        }
        const std::uint8_t value = kValues[static_cast<unsigned char>(c)];
        if (value == kNone || padding > 0)
            return std::nullopt;
        group = group << 6 | value;
        if (++digits == 4) {
            bytes.push_back(static_cast<unsigned char>(group >> 16));
            bytes.push_back(static_cast<unsigned char>(group >> 8 & 255));
            bytes.push_back(static_cast<unsigned char>(group & 255));
            group = 0;
            digits = 0;
        }
    }
    // One digit alone holds no byte; padding, if any, fills the group.
    if (digits == 1 || (padding > 0 && (digits == 0 || digits + padding != 4)))
        return std::nullopt;
    if (digits == 2)
        bytes.push_back(static_cast<unsigned char>(group >> 4));
    if (digits == 3) {
        bytes.push_back(static_cast<unsigned char>(group >> 10));
        bytes.push_back(static_cast<unsigned char>(group >> 2 & 255));
    }
    return bytes;
}

} // namespace orvo
