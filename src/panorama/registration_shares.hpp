/// How much of a registration is done after each of its steps, for progress.
#pragma once

namespace orvo {

inline constexpr float kFeaturesFound = 0.4f;
inline constexpr float kMatched = 0.8f; ///< adjustment takes the rest

} // namespace orvo
