/// Doubling a picture by learned filters.
#pragma once

#include "upscaling/filter_bank.hpp"

#include <orvo_core/image_data.hpp>

#include <atomic>

namespace orvo::details {

/// Writes `source` at twice its size into `target`, which has that size. Every sample becomes four, each by a filter of
/// 7 x 7 samples that is chosen by what the luma looks like around it: direction, strength and kind of structure. The
/// method is told in scripts/train_upscaler/train.py. All channels go through the filter of their place. Values stand
/// as they are; what comes out stays within the range of the 3 x 3 samples around, widened by a part of it, so edges
/// do not ring. Constants stay exactly what they are, sample centres where they are. Beyond its border the picture
/// repeats its edge. What is no number counts as 0, infinities as the largest half float.
///
/// Parallel over tiles of a fixed size; a few hundred kilobytes of scratch for each thread; the same bits for any
/// number of threads. False if `cancel`, which is read before each tile and may be empty, was set; `target` is
/// unfinished then. Throws std::bad_alloc.
[[nodiscard]] bool doubleByFilters(const _ImageData<PixelRGB<float>>& source, const FilterBank& bank,
                                   _ImageData<PixelRGB<float>>& target, const std::atomic<bool>* cancel);

} // namespace orvo::details
