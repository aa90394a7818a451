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
template <typename Pixel>
class IFocusStacking
{
public:
    /// Adds a frame of the stacker's size. `flag` is 0.
    virtual void addFrame(const Pixel* pixels, int width, int height, int flag) = 0;
    /// Forgets all frames.
    virtual void reset() = 0;
    /// How many frames have been added.
    [[nodiscard]] virtual int frameCount() const = 0;
    /// Writes the merged picture.
    virtual void getResult(Pixel* pixels, int width, int height) = 0;

    virtual ~IFocusStacking() = default;
};

/// A Laplacian pyramid stacker.
template <typename Pixel>
[[nodiscard]] std::unique_ptr<IFocusStacking<Pixel>> produceLaplacianFocusStacking(int width, int height, float value,
                                                                                   int levels, ESample sample);

} // namespace grfx
