/// The most similar known patch of each patch that meets the hole.
#pragma once

#include "filling/fill_level.hpp"
#include "filling/fill_settings.hpp"
#include "filling/source_cost.hpp"

#include <orvo_common/memory_manager.hpp>

#include <cstdint>

namespace orvo::details {

/// A source and its distance for each target of a level. Sources are indices into the planes of the level.
struct PatchField
{
    explicit PatchField(const FillLevel& level);

    ManagedPlane<std::int32_t> source;   ///< set for targets only
    ManagedPlane<std::int32_t> distance; ///< sum of weighted squared differences
};

/// The field of a level from that of the next coarser one, of half the size.
[[nodiscard]] PatchField refinedField(const FillLevel& level, const FillLevel& coarse, const PatchField& field);

/// Measures the distances again, since the hole was repainted, and searches for better sources: next to the sources of
/// neighbours, and at random up to `radius` pixels from the current one (PatchMatch: Barnes, Shechtman, Finkelstein,
/// Goldman, SIGGRAPH 2009). Departure: a row reads the rows above and below as they were before the pass, so the order
/// of rows and the number of threads do not matter. `coherence`: see Refinement. `stream` numbers the search.
void search(const FillLevel& level, PatchField& field, const PatchFillSettings& settings, const SourceCost& sourceCost,
            int radius, float coherence, unsigned stream);

} // namespace orvo::details
