/// JSON output.
#pragma once

#include <nlohmann/json.hpp>

#include <string>

namespace orvo::cli {

/// Indented by two. File names may not be UTF-8, but JSON must be: invalid bytes become U+FFFD.
[[nodiscard]] inline std::string jsonText(const nlohmann::ordered_json& json)
{
    return json.dump(2, ' ', false, nlohmann::json::error_handler_t::replace) + "\n";
}

} // namespace orvo::cli
