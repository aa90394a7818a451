// Capital letters and digits on a grid of 5 by 7.
#pragma once

#include "paint.hpp"

#include <string_view>

namespace orvo::scenes {

/// Ink, 0..1, of `text` written on one line in `line`: letters of equal width fill its height and start at its left.
[[nodiscard]] float textInk(std::string_view text, const Box& line, const Spot& p);

/// Width of that line, as a multiple of its height.
[[nodiscard]] float textAspect(std::string_view text);

} // namespace orvo::scenes
