#include <orvo_common/text.hpp>
#include <orvo_common/wide_path.hpp>

#include <array>
#include <cstddef>
#include <cstdint>

namespace orvo {

#ifdef _WIN32

std::wstring wideFromPath(const std::filesystem::path& path) { return path.wstring(); }

std::filesystem::path pathFromWide(const std::wstring& wide) { return wide; }

std::string pathText(const std::filesystem::path& path) { return ws2s(path.wstring()); }

#else

namespace {

constexpr std::uint32_t kByteBase = 0xdc00; // plus 0x80 .. 0xff
constexpr std::uint32_t kReplacement = 0xfffd;
constexpr std::uint32_t kLastCodePoint = 0x10ffff;

bool isSurrogate(std::uint32_t code) { return code >= 0xd800 && code <= 0xdfff; }

std::uint32_t byteAt(const std::string& text, std::size_t i) { return static_cast<unsigned char>(text[i]); }

// The length of the UTF-8 character at `i` and its code; a length of 0 if there is none.
std::size_t characterAt(const std::string& text, std::size_t i, std::uint32_t& code)
{
    // The smallest code that needs each length: an overlong form is not UTF-8.
    constexpr std::array<std::uint32_t, 5> kSmallest = {0, 0, 0x80, 0x800, 0x10000};
    const std::uint32_t first = byteAt(text, i);
    const std::size_t length = first < 0x80             ? 1
                               : (first & 0xe0) == 0xc0 ? 2
                               : (first & 0xf0) == 0xe0 ? 3
                               : (first & 0xf8) == 0xf0 ? 4
                                                        : 0;
    if (length == 0 || i + length > text.size())
        return 0;
    code = length == 1 ? first : first & (0x7fu >> length);
    for (std::size_t k = 1; k < length; ++k) {
        const std::uint32_t next = byteAt(text, i + k);
        if ((next & 0xc0) != 0x80)
            return 0;
        code = code << 6 | (next & 0x3f);
    }
    return code < kSmallest[length] || code > kLastCodePoint || isSurrogate(code) ? 0 : length;
}

void append(std::string& text, std::uint32_t code)
{
    const auto add = [&text](std::uint32_t byte) { text += static_cast<char>(byte); };
    if (code < 0x80)
        return add(code);
    if (code < 0x800) {
        add(0xc0 | code >> 6);
    } else {
        if (code < 0x10000) {
            add(0xe0 | code >> 12);
        } else {
            add(0xf0 | code >> 18);
            add(0x80 | (code >> 12 & 0x3f));
        }
        add(0x80 | (code >> 6 & 0x3f));
    }
    add(0x80 | (code & 0x3f));
}

} // namespace

std::wstring wideFromPath(const std::filesystem::path& path)
{
    const std::string& text = path.native();
    std::wstring wide;
    for (std::size_t i = 0; i < text.size();) {
        std::uint32_t code = 0;
        const std::size_t length = characterAt(text, i, code);
        wide += static_cast<wchar_t>(length > 0 ? code : kByteBase + byteAt(text, i));
        i += length > 0 ? length : 1;
    }
    return wide;
}

std::filesystem::path pathFromWide(const std::wstring& wide)
{
    std::string text;
    for (const wchar_t unit : wide) {
        const auto code = static_cast<std::uint32_t>(unit);
        if (code >= kByteBase + 0x80 && code <= kByteBase + 0xff)
            text += static_cast<char>(code - kByteBase);
        else
            append(text, code > kLastCodePoint || isSurrogate(code) ? kReplacement : code);
    }
    return text;
}

std::string pathText(const std::filesystem::path& path) { return path.native(); }

#endif

} // namespace orvo
