/// Evens out colours where areas painted from different sources meet, and at the rim of the hole.
#pragma once

#include "filling/fill_level.hpp"
#include "filling/fill_settings.hpp"
#include "filling/patch_field.hpp"

#include <orvo_common/memory_manager.hpp>
#include <orvo_core/image_data.hpp>

#include <cstdint>

namespace orvo::details {

/// Seams: steps between neighbouring pixels of the hole, and across its rim, that are not in their sources. Each pixel
/// stores those to its right and lower neighbour.
class SeamSteps
{
public:
    /// `painted`: the picture with the hole painted by voteInFull() from the same field.
    SeamSteps(const FillLevel& level, const PatchField& field, const PatchFillSettings& settings, const Hole& hole_,
              const _Rect<int>& window, const _ImageData<PixelRGB<float>>& painted);

    /// Removes the steps from the hole of `painted`: adds the smoothest planes with the opposite steps that vanish on
    /// the rim (Perez, Gangnet, Blake, SIGGRAPH 2003, solved for the difference). Colours in 0..1 stay there. The level
    /// and the field are no longer needed.
    void evenOut(_ImageData<PixelRGB<float>>& painted) const;

private:
    using Steps = PixelRGB<std::int16_t>;
    [[nodiscard]] std::size_t at(int x, int y) const; // from one before the bounds of the hole on

    const Hole& hole;
    ManagedPlane<Steps> toRight;
    ManagedPlane<Steps> below;
    ManagedPlane<std::uint8_t> gentleness; // of the sources of a pixel (GentleShading), 255: no structure at all
};

} // namespace orvo::details
