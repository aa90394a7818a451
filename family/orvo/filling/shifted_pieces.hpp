/// A hole filled with shifted pieces of the picture.
#pragma once

#include "filling/fill_level.hpp"
#include "filling/patch_field.hpp"
#include "filling/source_cost.hpp"

#include <orvo_common/run_control.hpp>

#include <cstdint>

namespace orvo::details {

/// The most pixels of a hole that shiftedPieces() takes: a few seconds of graph cuts.
inline constexpr std::int64_t kMostLabelled = 5000;
/// The same at the coarsest level: a border larger than its picture has no coarser one.
inline constexpr std::int64_t kMostLabelledAtCoarsest = 20000;

/// Paints the hole of `level`, which `field` has filled, anew and returns the sources used.
///
/// Each pixel copies from one of a few offsets: those at which the known part resembles itself most often, the sides of
/// the hole's box, and those close by. So what repeats or runs through (a fence, windows, a shore) continues in whole
/// pieces. Graph cuts choose the offsets so that the seams between pieces, and with the rim, show least (He, Sun, ECCV
/// 2012; expansion moves: Boykov, Veksler, Zabih, PAMI 2001). Departures: `sourceCost` counts as well, so that pieces
/// of rare things stay where they are, and the better of two starts counts, one of them `field`.
[[nodiscard]] PatchField shiftedPieces(FillLevel& level, const PatchField& field, const SourceCost& sourceCost,
                                       float sourceShare, const RunControl& control);

} // namespace orvo::details
