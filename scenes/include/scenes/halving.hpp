/// Reduces pictures to a half in the ways of other programs, to be enlarged again.
#pragma once

#include <orvo_core/image_data.hpp>

#include <memory>
#include <vector>

namespace orvo::scenes {

/// A way to reduce a picture to a half, separable and symmetric.
struct Halving
{
    const char* name;
    /// Weights of the samples at distances 0.5, 1.5, ... from the middle of a new sample, on one side; their sum is
    /// 0.5.
    std::vector<double> taps;
    /// The samples that a new one replaces do not all count, so fine detail turns into stairs and moire.
    bool aliases;
};

/// Area, cubic and Lanczos with kernels stretched by the scale, as careful programs reduce; then cubic and Lanczos with
/// the kernels for enlarging.
[[nodiscard]] const std::vector<Halving>& halvings();

/// `picture` with half the sides, odd ones rounded down, in its profile and rounded to 8 bits as a file is. The picture
/// repeats its edge.
[[nodiscard]] std::shared_ptr<_ImageData<PixelRGB<float>>> halved(const _ImageData<PixelRGB<float>>& picture,
                                                                  const Halving& halving);

} // namespace orvo::scenes
