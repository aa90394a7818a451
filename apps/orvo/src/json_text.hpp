/// JSON output.
#pragma once

#include <nlohmann/json.hpp>

#include <string>

namespace orvo::cli {

/// Indented by two. File names may not be UTF-8, but JSON must be: invalid bytes become U+FFFD, and a member "name"
/// that contains some is followed by "name_hex" with all of its bytes as pairs of hexadecimal digits.
[[nodiscard]] std::string jsonText(nlohmann::ordered_json json);

} // namespace orvo::cli
