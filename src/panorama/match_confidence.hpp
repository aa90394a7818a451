/// Shared by features and cameras.
#pragma once

namespace orvo {

/// Confidence from which a match counts, a pair connects pictures, and a pair moves cameras.
inline constexpr float kMatchConfidence = 0.5f;

} // namespace orvo
