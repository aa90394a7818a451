/// Which known patch is most like each patch that meets the hole.
#pragma once

#include "filling/fill_level.hpp"
#include "filling/fill_settings.hpp"

#include <orvo_common/memory_manager.hpp>

#include <cstdint>

namespace orvo::details {

/// For each target of a level a source and their distance. Sources are indices into the planes of the level.
struct PatchField
{
    explicit PatchField(const FillLevel& level);

    ManagedPlane<std::int32_t> source;   ///< set for targets alone
    ManagedPlane<std::int32_t> distance; ///< sum of weighted squared differences
};

/// The field of a level from that of the next coarser one, whose pixels are twice as large.
[[nodiscard]] PatchField refinedField(const FillLevel& level, const FillLevel& coarse, const PatchField& field);

/// Measures the distances anew, after the hole was repainted, and looks for better sources: those next to the sources
/// of neighbours, and random ones at up to `radius` pixels from the present one (PatchMatch: Barnes, Shechtman,
/// Finkelstein, Goldman, SIGGRAPH 2009). Departure: a row sees the rows above and below as they were before the pass,
/// so that the order of rows, hence the number of threads, does not matter. `stream` numbers the search.
void search(const FillLevel& level, PatchField& field, const PatchFillSettings& settings, int radius, unsigned stream);

} // namespace orvo::details
