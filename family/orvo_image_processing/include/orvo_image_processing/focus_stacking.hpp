/// Merging a focus series: of many pictures the sharpest part of each.
#pragma once

#include <orvo_common/export.hpp>
#include <orvo_core/pixel.hpp>

#include <memory>

namespace grfx {

/// What an element of the stacker's pyramid is held as.
enum class ESample
{
    Float = 0, ///< 32-bit floating point
};

/// Takes the frames of a focus series one at a time, in registration, and gives the picture that is sharp throughout.
/// Not to be called from two threads at once; parallel inside, and its result does not depend on the thread count.
/// `pixels` stays the caller's, is only read or written during the call, and holds `height` rows of `width` pixels
/// without gaps. Samples are encoded as a viewer sees them (an sRGB-like curve), 1.0 full scale.
///
/// Members throw std::invalid_argument that tells both sizes if `width` and `height` are not the stacker's, and
/// std::bad_alloc. After std::bad_alloc of addFrame() the state is that of an unfinished frame: reset() it.
template <typename Pixel>
class ORVO_EXPORT IFocusStacking
{
public:
    /// Adds a frame. The first one is the reference: it is kept wherever no later frame shows more detail than noise
    /// could. `flag` is 0, the only value there is; others throw std::invalid_argument.
    ///
    /// Values outside of 0..1 are kept. A pixel with a channel that is not a number, infinite or beyond 1e6 counts as
    /// absent: the frame wins nowhere near it while another has something there. Where no frame has anything, the
    /// result continues the first frame's row.
    virtual void addFrame(const Pixel* pixels, int width, int height, int flag) = 0;
    /// Forgets all frames.
    virtual void reset() = 0;
    /// How many frames have been added.
    [[nodiscard]] virtual int frameCount() const = 0;
    /// Writes the merged picture; every sample is finite. Changes nothing: more frames can follow. Throws
    /// std::logic_error if there is no frame yet.
    virtual void getResult(Pixel* pixels, int width, int height) = 0;

    virtual ~IFocusStacking() = default;
};

/// A Laplacian pyramid stacker for pictures of `width` x `height` pixels.
///   value    smallest side, in pixels, that the coarsest level may have; at least 1
///   levels   most levels of the pyramid above the picture itself; at least 1. The first level is made even if it is
///            smaller than `value`
///   sample   how elements are held
/// Throws std::invalid_argument that names the argument, its value and its bound.
///
/// Method. Each frame becomes a Laplacian pyramid (Burt, Adelson, 1983), and of each coefficient the frame with the
/// most activity around it is kept (Burt, Kolczynski, "Enhanced image capture through fusion", 1993), as a running
/// maximum. Departures:
///   - The activity is one number for the three channels, the summed square of their coefficients, so that channels
///     never come from different frames.
///   - The activity of a level holds that of all finer ones around it, and a small part of the coarser ones. Fine
///     detail thus decides for the coarse levels below it, where defocused neighbours shine in, and where there is no
///     fine detail the coarse ones decide for all. Consistency between levels is what Forster, Van De Ville, Berent,
///     Sage, Unser, "Complex wavelets for extended depth-of-field", 2004, vote for afterwards; here it costs no memory
///     of the frames. The finest two levels share one smooth map, which bounds regions between pixels.
///   - A frame has to beat what is held by more than noise could: the noise at each brightness is read off the
///     flattest windows of the frames. Flat areas are therefore the reference's throughout.
///   - The coarsest level is a mean weighted by squared activity.
///   - The result is limited at each sample to the range that the frames have there, which leaves no room for ringing
///     and halos where the choice changes.
///
/// Memory: from the first frame on 7.4 float planes of the picture's size (pyramid 4, activity 0.4, range in 16 bit 3),
/// whatever the number of frames; 9.0 at most during addFrame(), 13.3 if that frame has absent pixels, 8.4 during
/// getResult(); plus some rows per thread, and the coarsest level's share. All from MemoryManager, given back by
/// reset() and the destructor.
template <typename Pixel>
[[nodiscard]] std::unique_ptr<IFocusStacking<Pixel>> produceLaplacianFocusStacking(int width, int height, float value,
                                                                                   int levels, ESample sample);

template <>
[[nodiscard]] ORVO_EXPORT std::unique_ptr<IFocusStacking<orvo::PixelRGB<float>>>
produceLaplacianFocusStacking<orvo::PixelRGB<float>>(int width, int height, float value, int levels, ESample sample);

} // namespace grfx
