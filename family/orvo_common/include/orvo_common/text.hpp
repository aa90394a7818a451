/// Wide and narrow text, and the family's comparison of floats.
#pragma once

#include <orvo_common/export.hpp>

#include <string>

namespace orvo {

/// Converts wide text to UTF-8. An invalid code unit becomes U+FFFD.
[[nodiscard]] ORVO_EXPORT std::string ws2s(const std::wstring& wide);

/// Equality within a tolerance relative to the larger of the two; false if either is NaN.
[[nodiscard]] ORVO_EXPORT bool isFloatEqual(float a, float b);

} // namespace orvo
