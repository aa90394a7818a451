/// The first guess at the coarsest level: paints the hole layer by layer from its rim.
#pragma once

#include "filling/fill_level.hpp"
#include "filling/fill_settings.hpp"
#include "filling/patch_field.hpp"
#include "filling/source_cost.hpp"

namespace orvo::details {

/// Paints the hole of `level` and returns the sources used. Patches on the rim are compared with sources on the pixels
/// known or painted so far (Newson, Almansa, Gousseau, Perez, section 3.4).
[[nodiscard]] PatchField peel(FillLevel& level, const PatchFillSettings& settings, const SourceCost& sourceCost);

} // namespace orvo::details
