// Base64 of RFC 4648, section 4.
#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace orvo::io {

[[nodiscard]] std::string base64Of(std::span<const unsigned char> bytes);

// Skips white space; padding is optional. Nothing if a character is not in the alphabet.
[[nodiscard]] std::optional<std::vector<unsigned char>> bytesOfBase64(std::string_view text);

} // namespace orvo::io
