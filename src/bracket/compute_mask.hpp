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
/// no halo. Computed at half size. Peak: the result and a plane of floats.
[[nodiscard]] std::vector<float, ManagedAllocator<float>> computeMask(const PixelRGB<float>* pixels, int width,
                                                                      int height, float weight);
/// The same for a rung whose pixels are computed on demand.
[[nodiscard]] std::vector<float, ManagedAllocator<float>> computeMask(RungPixels& pixels, float weight);

/// Luminance at a smaller size in 15 bits: each cell is the mean of the pixels that it covers, those at its border
/// weighted by the covered share, limited to 0..1 and truncated.
void downsample_area(const PixelRGB<float>* pixels, int width, int height, std::int16_t* target, int targetWidth,
                     int targetHeight);

/// Enlarges a plane by repeating the nearest sample to the upper left.
void upsample_near(const float* source, int sourceWidth, int sourceHeight, float* target, int width, int height);

} // namespace orvo
