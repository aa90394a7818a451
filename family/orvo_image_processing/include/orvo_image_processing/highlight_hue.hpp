/// Restores the hue of partly clipped highlights.
#pragma once

#include <orvo_common/export.hpp>
#include <orvo_core/color_profile.hpp>
#include <orvo_core/pixel.hpp>

#include <memory>

namespace orvo {

/// A camera clips the channels of a bright light one after the other, so an orange glow turns yellow before it turns
/// white. Gives such pixels the hue of the unclipped light around them: the clipped channel rises, beyond white if need
/// be, and the pixel keeps its luminance. Pixels that are not clipped stay as they are.
///
/// `pixels` are in melissaRGB(); `clippedIn` is the colour space whose full scale was the limit: the file's. It has to
/// be a matrix profile; with any other one nothing changes.
///
/// Method: white light added to a surface, or more light on it, changes neither the order of its channels nor the place
/// of the middle one between the others. That place is averaged over unclipped bright pixels on a coarse grid, filled
/// into clipped cells from coarser grids, and gives the strongest channel from the other two. If two are clipped, this
/// is the least value that the scene can have had; the paler the pixel, the smaller the change, so white stays white.
///
/// Scratch: a grid of at most 192 cells along the longer side. Any thread; parallel; the same bits for any number of
/// threads. Throws std::bad_alloc.
ORVO_EXPORT void recoverHighlightHue(PixelRGB<float>* pixels, int width, int height,
                                     const std::shared_ptr<ColorProfile>& clippedIn);

/// The same by rows, for a picture that stays as it is: the grid is measured once.
class ORVO_EXPORT HighlightHueRecovery
{
public:
    /// Keeps no pointer to the pixels.
    HighlightHueRecovery(const PixelRGB<float>* pixels, int width, int height,
                         const std::shared_ptr<ColorProfile>& clippedIn);
    ~HighlightHueRecovery();
    HighlightHueRecovery(HighlightHueRecovery&&) noexcept;
    HighlightHueRecovery& operator=(HighlightHueRecovery&&) noexcept;

    /// Recovers the pixels first..end-1 of row `y` in place; `pixels` is at the first of them. Any thread.
    void row(int y, int first, int end, PixelRGB<float>* pixels) const;

private:
    struct State;
    std::unique_ptr<State> state; // empty: nothing changes
};

} // namespace orvo
