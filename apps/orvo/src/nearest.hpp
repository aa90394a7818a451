/// Finds what somebody meant who mistyped.
#pragma once

#include <span>
#include <string_view>

namespace orvo::cli {

/// The word of `known` that is nearest to `typed`, by single letters left out, added, changed, or swapped with the
/// next; empty if none is near enough to be meant.
[[nodiscard]] std::string_view nearestWord(std::string_view typed, std::span<const std::string_view> known);

} // namespace orvo::cli
