/// Merges a focus series: takes the sharpest part of each picture.
#pragma once

#include <orvo_common/export.hpp>
#include <orvo_core/pixel.hpp>

#include <memory>

namespace grfx {

/// The element type of the stacker's pyramid.
enum class ESample
{
    Float = 0, ///< 32-bit floating point
};

/// Takes the aligned frames of a focus series one at a time and returns the picture that is sharp throughout.
/// Not thread-safe; parallel inside, and the result does not depend on the thread count. `pixels` stays the caller's,
/// is only accessed during the call, and has `height` rows of `width` pixels without gaps. Samples are encoded for
/// display (an sRGB-like curve), 1.0 full scale.
///
/// Members throw std::invalid_argument that names both sizes if `width` and `height` differ from the stacker's, and
/// std::bad_alloc. After std::bad_alloc from addFrame() the frame is incomplete: call reset().
template <typename Pixel>
class ORVO_EXPORT IFocusStacking
{
public:
    /// Adds a frame. The first one is the reference: it is kept wherever no later frame shows more detail than noise
    /// could. `flag` must be 0; other values throw std::invalid_argument.
    ///
    /// Values outside 0..1 are kept. A pixel with a channel that is NaN, infinite or beyond 1e6 counts as absent: the
    /// frame is not chosen near it while another has data there. Where no frame has data, the result continues the
    /// first frame's row.
    virtual void addFrame(const Pixel* pixels, int width, int height, int flag) = 0;
    /// Forgets all frames.
    virtual void reset() = 0;
    /// Number of frames added.
    [[nodiscard]] virtual int frameCount() const = 0;
    /// Writes the merged picture; every sample is finite. Does not change the state: more frames can follow. Throws
    /// std::logic_error if no frame has been added.
    virtual void getResult(Pixel* pixels, int width, int height) = 0;

    virtual ~IFocusStacking() = default;
};

/// A Laplacian pyramid stacker for pictures of `width` x `height` pixels.
///   value    minimum of the smaller side of the coarsest level, in pixels; at least 1
///   levels   maximum number of levels above the picture itself; at least 1. The first level exists even if it is
///            smaller than `value`
///   sample   element type
/// Throws std::invalid_argument that names the argument, its value and its limit.
///
/// Method. Each frame becomes a Laplacian pyramid (Burt, Adelson, 1983), and each coefficient comes from the frame with
/// the most activity around it (Burt, Kolczynski, "Enhanced image capture through fusion", 1993), as a running
/// maximum. Departures:
///   - The activity is one number for the three channels, the summed square of their coefficients, so that channels
///     never come from different frames.
///   - The activity of a level includes that of all finer ones around it, and a small part of the coarser ones. Fine
///     detail thus decides for the coarse levels, where defocused neighbours bleed in, and where there is no fine
///     detail the coarse levels decide for all. Forster, Van De Ville, Berent, Sage, Unser, "Complex wavelets for
///     extended depth-of-field", 2004, vote for this consistency between levels afterwards; here it needs no memory
///     for the frames. The finest two levels share one smooth map, which separates regions between pixels.
///   - A frame has to exceed the current activity by more than noise could: the noise at each brightness is measured
///     in the flattest windows of the frames. Flat areas therefore always come from the reference.
///   - The coarsest level is a mean weighted by squared activity.
///   - The result is clamped at each sample to the range of the frames there, which prevents ringing and halos where
///     the choice changes.
///
/// Memory: from the first frame on 7.4 float planes of the picture's size (pyramid 4, activity 0.4, range in 16 bit 3),
/// for any number of frames; at most 9.0 during addFrame(), 13.3 if that frame has absent pixels, 8.4 during
/// getResult(); plus some rows per thread and the coarsest level. All from MemoryManager, released by reset() and the
/// destructor.
template <typename Pixel>
[[nodiscard]] std::unique_ptr<IFocusStacking<Pixel>> produceLaplacianFocusStacking(int width, int height, float value,
                                                                                   int levels, ESample sample);

template <>
[[nodiscard]] ORVO_EXPORT std::unique_ptr<IFocusStacking<orvo::PixelRGB<float>>>
produceLaplacianFocusStacking<orvo::PixelRGB<float>>(int width, int height, float value, int levels, ESample sample);

} // namespace grfx
