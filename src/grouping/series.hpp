/// Finds focus series among pictures of one view and one exposure.
#pragma once

#include "grouping/same_framing.hpp"
#include "grouping/shots.hpp"

#include <optional>
#include <vector>

namespace orvo {

struct FocusPiece
{
    Run run;
    bool isSeries = false; ///< else a single picture
    std::optional<float> sharpnessChange;

    bool operator==(const FocusPiece&) const = default;
};

/// Cuts a run of Shots. By the focus distances of the metadata if all are known and they change; else by the pictures:
/// in a series the tiles of the thumbnails gain and lose sharpness, in a burst they keep it.
[[nodiscard]] std::vector<FocusPiece> focusPieces(Shots& shots, Run run);

/// Whether all focus distances of the run are known and not all are equal.
[[nodiscard]] bool hasFocusDistances(const Shots& shots, Run run);

} // namespace orvo
