/// Joins pictures and brackets whose views overlap.
#pragma once

#include "grouping/same_framing.hpp"
#include "grouping/shots.hpp"

#include <orvo_extensions/picture_groups.hpp>

#include <cstddef>
#include <optional>
#include <vector>

namespace orvo {

/// What the pictures of one view are.
struct Unit
{
    PictureGroupKind kind = PictureGroupKind::Single; ///< Single, Bracket or FocusSeries
    Run run;
    std::size_t representative = 0; ///< the shot that is compared with those of other units
    std::size_t alike = 0;          ///< Single: neighbours of the same framing and exposure
    std::optional<float> sharpnessChange;
};

/// Units of one panorama, or a single one.
struct JoinedUnits
{
    std::vector<std::size_t> units; ///< in the order of capture
    std::optional<ValueRange> overlap;
};

/// All units, in the order of their first ones. Singles join singles, brackets join brackets with the same steps.
[[nodiscard]] std::vector<JoinedUnits> joinPanoramas(Shots& shots, const std::vector<Unit>& units);

} // namespace orvo
