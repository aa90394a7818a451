/// The enlarged canvas: the picture on gray, and the mask of the area to paint.
#pragma once

#include <orvo_core/geometry.hpp>
#include <orvo_core/image_data.hpp>

#include <memory>

namespace orvo {

/// Copies `source`, of the size of `rect`, into `target` at `rect`, which must be inside of it. Does nothing for an
/// empty rectangle. Parallel over the rows.
void copyRect(std::shared_ptr<_ImageData<PixelRGB<float>>>& target,
              const std::shared_ptr<const _ImageData<PixelRGB<float>>>& source, const _Rect<int>& rect);

/// Samples above 0 become 1, all others 0. Parallel.
void binarize(_ImageData<float>& mask);

struct ExpandCanvas
{
    std::shared_ptr<_ImageData<PixelRGB<float>>> picture;
    std::shared_ptr<_ImageData<float>> mask; ///< 1 where the service has to paint
};

/// The canvas of the nonempty `crop`, in coordinates of the picture and in its profile. Peak: the canvas, and the part
/// of the picture inside it.
[[nodiscard]] ExpandCanvas makeExpandCanvas(const std::shared_ptr<const _ImageData<PixelRGB<float>>>& picture,
                                            const _Rect<int>& crop);

/// Both scaled to `size`, with a hard mask. Peak: two four-channel pictures besides the result.
[[nodiscard]] ExpandCanvas scaledTo(const ExpandCanvas& pair, _Size<int> size);

} // namespace orvo
