/// Base64 of RFC 4648, section 4.
#pragma once

#include <orvo_common/export.hpp>

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace orvo {

/// One line with padding.
[[nodiscard]] ORVO_EXPORT std::string base64Of(std::span<const unsigned char> bytes);

/// White space is skipped and padding may be missing; empty if any other character is not in the alphabet, or if the
/// text ends inside a byte.
[[nodiscard]] ORVO_EXPORT std::optional<std::vector<unsigned char>> bytesOfBase64(std::string_view text);

} // namespace orvo
