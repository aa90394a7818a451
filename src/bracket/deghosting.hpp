/// Takes moving subjects out of a bracket.
#pragma once

#include "bracket/frames.hpp"
#include "bracket/ghost_mask.hpp"

#include <orvo_extensions/hdr.hpp>
#include <orvo_image_processing/auto_exposure.hpp>
#include <orvo_image_processing/highlight_hue.hpp>

#include <functional>
#include <memory>
#include <vector>

namespace orvo {

/// processDeghosting() in steps, for frames that are not all in memory: compare() with each frame but the reference,
/// one after another, then finishMask(), then replaceRow() for their rows, in any order and in parallel. Frame and
/// reference must have the same pixels in both passes.
///
/// Peak: three planes of bytes; while frames are compared, some rows per thread besides.
class Deghosting
{
public:
    using Pixel = PixelRGB<float>;
    /// Pixels first..end-1 of row `y` of the reference, or made in `scratch`, which has room for GhostMask::kTile.
    using ReferenceRow = std::function<const Pixel*(int y, int first, int end, Pixel* scratch)>;

    /// `referenceIndex` is only logged.
    Deghosting(_Size<int> size, DeghostAmount amount, std::size_t frameCount, int referenceIndex);

    void compare(std::size_t index, const Pixel* frame, const Pixel* reference);
    void finishMask();

    /// Row `y` of a frame, in place. `hues`: the reference with the hue of its clipped highlights recovered
    /// (ReexposedFrame::row()), or empty.
    void replaceRow(std::size_t index, int y, Pixel* frame, const ReferenceRow& reference,
                    const ReferenceRow& hues = {}) const;

private:
    _Size<int> size;
    float sensitivity;
    GhostMask mask;
    std::vector<std::unique_ptr<ReexposedFrame>> maps; // per frame; empty for the reference
};

/// Finds where any frame differs from frame `referenceIndex` in its fine structure, grows that into one soft mask, and
/// replaces those areas of every other frame by the reference brought to that frame's exposure. Areas blown out in the
/// reference are left alone. The pixels of the frames are written in place, all of them limited to 0..2; a frame that
/// shares its pixels with another shares the change. The reference is never written.
///
/// Frame: HDRFrame or FocusStackerFrame, all of one size. `hues` recovers the hue of the reference's clipped highlights
/// where it replaces those of a darker frame; may be empty. Peak: that of Deghosting beside the frames.
template <typename Frame>
void processDeghosting(std::vector<Frame>& frames, DeghostAmount amount, int referenceIndex,
                       const HighlightHueRecovery* hues = nullptr);

extern template void processDeghosting<HDRFrame>(std::vector<HDRFrame>&, DeghostAmount, int,
                                                 const HighlightHueRecovery*);
extern template void processDeghosting<FocusStackerFrame>(std::vector<FocusStackerFrame>&, DeghostAmount, int,
                                                          const HighlightHueRecovery*);

} // namespace orvo
