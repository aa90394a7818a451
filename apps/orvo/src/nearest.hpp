/// Suggestions for mistyped words.
#pragma once

#include <span>
#include <string_view>

namespace orvo::cli {

/// The word of `known` nearest to `typed`, by omitted, added, changed or swapped letters; empty if none is close
/// enough.
[[nodiscard]] std::string_view nearestWord(std::string_view typed, std::span<const std::string_view> known);

} // namespace orvo::cli
