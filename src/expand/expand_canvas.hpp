/// The enlarged canvas: the picture on gray, and a mask of what is to be painted.
#pragma once

#include <orvo_core/geometry.hpp>
#include <orvo_core/image_data.hpp>

#include <memory>

namespace orvo {

/// Copies `source` row by row to `rect` of `target`, which holds it; `source` has the size of `rect`. Nothing is done
/// for a rectangle without rows. Parallel over the rows.
void copyRect(std::shared_ptr<_ImageData<PixelRGB<float>>>& target,
              const std::shared_ptr<const _ImageData<PixelRGB<float>>>& source, const _Rect<int>& rect);

/// What is above 0 becomes 1, all else 0. Parallel.
void binarize(_ImageData<float>& mask);

struct ExpandCanvas
{
    std::shared_ptr<_ImageData<PixelRGB<float>>> picture;
    std::shared_ptr<_ImageData<float>> mask; ///< 1 where the service has to paint
};

/// The canvas of `crop`, in coordinates of the picture, with the picture's profile. `crop` has pixels. Peak: the
/// canvas, and the part of the picture that lies in it.
[[nodiscard]] ExpandCanvas makeExpandCanvas(const std::shared_ptr<const _ImageData<PixelRGB<float>>>& picture,
                                            const _Rect<int>& crop);

/// Both at `size`, the mask hard. Peak: two pictures of four channels beside the result.
[[nodiscard]] ExpandCanvas scaledTo(const ExpandCanvas& pair, _Size<int> size);

} // namespace orvo
