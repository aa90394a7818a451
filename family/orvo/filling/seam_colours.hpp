/// Evens out the colours where what was painted from different places meets, and where it meets what is known.
#pragma once

#include "filling/fill_level.hpp"
#include "filling/fill_settings.hpp"
#include "filling/patch_field.hpp"

#include <orvo_common/memory_manager.hpp>
#include <orvo_core/image_data.hpp>

#include <cstdint>

namespace orvo::details {

/// Steps between neighbouring pixels of the hole, and across its rim, that their sources do not have: seams. Each pixel
/// keeps those to its right and its lower neighbour.
class SeamSteps
{
public:
    /// `painted`: the picture with the hole painted by voteInFull() from the same field.
    SeamSteps(const FillLevel& level, const PatchField& field, const PatchFillSettings& settings, const Hole& hole_,
              const _Rect<int>& window, const _ImageData<PixelRGB<float>>& painted);

    /// Takes the steps out of the hole of `painted`: adds to it the smoothest planes that have them the other way round
    /// and vanish on the rim (Perez, Gangnet, Blake, SIGGRAPH 2003, solved for the difference). Colours stay within
    /// 0..1 if they were. The level and the field are no longer needed.
    void evenOut(_ImageData<PixelRGB<float>>& painted) const;

private:
    using Steps = PixelRGB<std::int16_t>;
    [[nodiscard]] std::size_t at(int x, int y) const; // from one before the bounds of the hole on

    const Hole& hole;
    ManagedPlane<Steps> toRight;
    ManagedPlane<Steps> below;
};

} // namespace orvo::details
