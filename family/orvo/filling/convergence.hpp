/// Lines around a hole that converge in one point, as on a floor seen in perspective.
#pragma once

#include "filling/fill_level.hpp"

#include <orvo_core/geometry.hpp>

#include <optional>

namespace orvo::details {

/// Where lines meet, in pixels of the picture, whose centres have whole coordinates.
struct VanishingPoint
{
    float x = 0.0f;
    float y = 0.0f;
};

/// The point in which most straight edges around the hole meet, if it is so near that their directions differ visibly
/// from one end of the hole to the other: shifted copies then cannot continue them. Nothing for lines that are parallel
/// or nearly so, and for pictures without a dominant set of lines. The candidates are the crossings of many pairs of
/// edges (as in RANSAC, Fischler, Bolles, CACM 24(6), 1981, with pairs that are always the same).
///
/// `level`: of the part `window` of the picture, reduced to `1 / scale`. `hole`: its bounds in the picture.
[[nodiscard]] std::optional<VanishingPoint> convergence(const FillLevel& level, int scale, const _Rect<int>& window,
                                                        const _Rect<int>& hole);

} // namespace orvo::details
