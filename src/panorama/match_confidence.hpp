/// What features and cameras have in common.
#pragma once

namespace orvo {

/// Confidence from which a match counts, a pair holds pictures together, and a pair moves cameras.
inline constexpr float kMatchConfidence = 0.5f;

} // namespace orvo
