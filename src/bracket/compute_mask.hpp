/// The weight of a frame in the blend, computed from its brightness.
#pragma once

#include "bracket/rung_pixels.hpp"

#include <orvo_common/memory_manager.hpp>
#include <orvo_core/pixel.hpp>

#include <cstdint>
#include <vector>

namespace orvo {

/// One weight per pixel, about 0..1: luminance (0.299, 0.587, 0.114 of the encoded values) with detail smoothed and
/// large edges reduced to 1 - `weight` of their height, so that neighbouring areas have similar weights and edges get
/// no halo. Computed at half size. One thread at a time; each call is itself parallel.
class BlendMask
{
public:
    /// Most rows of one call of rows(): enough work for all threads, a few megabytes of a large picture.
    static constexpr int kBandRows = 128;

    /// `pixels` are not empty, and are not read later. Peak: two thirds of a plane of floats; half of that is kept.
    BlendMask(const RungPixels& pixels, float weight);

    /// The weights of rows `first` to `end` - 1, contiguous. Valid until the next call.
    [[nodiscard]] const float* rows(int first, int end);

private:
    [[nodiscard]] ManagedPlane<float> filtered(const RungPixels& pixels, float weight) const;

    int width;
    int height;
    int halfWidth;
    int halfHeight;
    ManagedPlane<float> half;
    ManagedPlane<float> doubled; // a band, and the rows around it that its blurs read
    ManagedPlane<float> blurred;
};

/// The whole BlendMask. Peak: the result, and that of the mask.
[[nodiscard]] std::vector<float, ManagedAllocator<float>> computeMask(const PixelRGB<float>* pixels, int width,
                                                                      int height, float weight);
[[nodiscard]] std::vector<float, ManagedAllocator<float>> computeMask(const RungPixels& pixels, float weight);

/// Luminance at a smaller size in 15 bits: each cell is the mean of the pixels that it covers, those at its border
/// weighted by the covered share, limited to 0..1 and truncated.
void downsample_area(const PixelRGB<float>* pixels, int width, int height, std::int16_t* target, int targetWidth,
                     int targetHeight);

/// Rows `firstRow` to `endRow` - 1 of a plane enlarged to `width` x `height` by repeating the nearest sample to the
/// upper left.
void upsample_near(const float* source, int sourceWidth, int sourceHeight, float* target, int width, int height,
                   int firstRow, int endRow);

} // namespace orvo
