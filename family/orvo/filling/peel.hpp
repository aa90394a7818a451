/// The first guess at the coarsest level: the hole is painted layer by layer from its rim.
#pragma once

#include "filling/fill_level.hpp"
#include "filling/fill_settings.hpp"
#include "filling/patch_field.hpp"

namespace orvo::details {

/// Paints the hole of `level` and returns the sources that it was painted from. What lies on the rim is compared with
/// sources by the pixels that are known or painted by then (Newson, Almansa, Gousseau, Perez, section 3.4).
[[nodiscard]] PatchField peel(FillLevel& level, const PatchFillSettings& settings);

} // namespace orvo::details
