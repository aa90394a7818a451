/// Cuts pictures of one view into brackets.
#pragma once

#include "grouping/picture_facts.hpp"
#include "grouping/same_framing.hpp"

#include <span>
#include <vector>

namespace orvo {

struct BracketPiece
{
    Run run;
    bool isBracket = false; ///< else a single picture

    bool operator==(const BracketPiece&) const = default;
};

/// The cut of lowest cost: few pieces, each of different exposures, of the usual sizes of brackets (3, 5, 7, 9), evenly
/// spaced and without a longer pause inside. By dynamic programming; of equal costs the first pieces are the longest.
/// `run` are the pictures in the order of capture; indices of the result count from its first.
[[nodiscard]] std::vector<BracketPiece> bracketPieces(std::span<const PictureFacts> run);

} // namespace orvo
