/// Wide and narrow text, and the family's comparison of floats.
#pragma once

#include <orvo_common/export.hpp>

#include <string>

namespace orvo {

/// UTF-8 of a wide text. A code unit that is no character becomes U+FFFD.
[[nodiscard]] ORVO_EXPORT std::string ws2s(const std::wstring& wide);

/// Equality within a tolerance that grows with the larger of the two; false if either is not a number.
[[nodiscard]] ORVO_EXPORT bool isFloatEqual(float a, float b);

} // namespace orvo
