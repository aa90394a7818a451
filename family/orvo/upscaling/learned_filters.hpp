/// Doubles a picture with learned filters.
#pragma once

#include "upscaling/filter_bank.hpp"

#include <orvo_common/run_control.hpp>
#include <orvo_core/image_data.hpp>

namespace orvo::details {

/// Writes `source` at twice its size into `target`, which has that size. Every sample becomes four, each by a filter of
/// 7 x 7 samples selected by the luma around it: direction, strength and kind of structure. `sharpness` is that of the
/// picture (picture_sharpness.hpp), 0..1: it mixes the filters for soft and for aliased pictures.
/// scripts/train_upscaler/train.py describes the method. All channels use the filter of their place. Values are used as
/// they are; results stay within the range of the 3 x 3 samples around, widened by a part of it, so edges do not ring.
/// Constants stay exactly the same, and sample centres keep their positions. Beyond its border the picture repeats its
/// edge. NaN counts as 0, infinities as the largest half float.
///
/// Parallel over tiles of a fixed size; a few hundred kilobytes of scratch per thread; bit-identical for any number of
/// threads. False if `run`, which is polled before each tile, was cancelled; `target` is unfinished then.
/// Throws std::bad_alloc.
[[nodiscard]] bool doubleByFilters(const _ImageData<PixelRGB<float>>& source, const FilterBank& bank, float sharpness,
                                   _ImageData<PixelRGB<float>>& target, const RunControl& run);

} // namespace orvo::details
