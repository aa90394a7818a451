/// Plane projective maps between pixel grids.
#pragma once

#include <orvo_core/geometry.hpp>

#include <array>

namespace orvo::scenes {

/// A 3x3 row-major matrix that maps a point (x, y, 1). Pixel centres are at integers: (0, 0) is the centre of the top
/// left pixel. Named targetFromSource, so that a chain reads outFromIn = outFromMid * midFromIn.
using Homography = std::array<double, 9>;

inline constexpr Homography kIdentity = {1, 0, 0, 0, 1, 0, 0, 0, 1};

/// `outer` after `inner`.
[[nodiscard]] Homography compose(const Homography& outer, const Homography& inner);
/// Throws std::invalid_argument if the matrix has no inverse.
[[nodiscard]] Homography inverse(const Homography& map);
[[nodiscard]] _Point<double> mapPoint(const Homography& map, _Point<double> point);

} // namespace orvo::scenes
