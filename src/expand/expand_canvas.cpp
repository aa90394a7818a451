#include "expand/expand_canvas.hpp"

#include "GenProcessorBase/rectangles.hpp"

#include <orvo_core/parallel.hpp>
#include <orvo_core/rgba.hpp>
#include <orvo_image_processing/image_transform.hpp>

#include <algorithm>
#include <cstring>

namespace orvo {
namespace {

constexpr float kGray = 0.5f;

} // namespace

void copyRect(std::shared_ptr<_ImageData<PixelRGB<float>>>& target,
              const std::shared_ptr<const _ImageData<PixelRGB<float>>>& source, const _Rect<int>& rect)
{
    if (rect.height < 1 || rect.width < 1)
        return;
    const std::size_t bytes = static_cast<std::size_t>(rect.width) * sizeof(PixelRGB<float>);
    forEachRow(rect.height, [&](int y) { std::memcpy(target->row(rect.y + y) + rect.x, source->row(y), bytes); });
}

void binarize(_ImageData<float>& mask)
{
    float* const samples = mask.data();
    forEachRange(mask.pixelCount(), [samples](std::size_t first, std::size_t last) {
        for (std::size_t i = first; i < last; ++i)
            samples[i] = samples[i] > 0.0f ? 1.0f : 0.0f;
    });
}

ExpandCanvas makeExpandCanvas(const std::shared_ptr<const _ImageData<PixelRGB<float>>>& picture, const _Rect<int>& crop)
{
    ExpandCanvas canvas;
    canvas.picture = std::make_shared<_ImageData<PixelRGB<float>>>(crop.size(), PixelRGB<float>{kGray, kGray, kGray},
                                                                   picture->colorProfile());
    canvas.mask = std::make_shared<MaskImage>(crop.size(), 1.0f);
    const _Rect<int> whole(0, 0, picture->width(), picture->height());
    const _Rect<int> source = intersected(crop, whole);
    if (source == _Rect<int>())
        return canvas;
    const _Rect<int> target(source.x - crop.x, source.y - crop.y, source.width, source.height);
    copyRect(canvas.picture, source == whole ? picture : picture->copy(source), target);
    canvas.mask->fillRect(0.0f, target);
    return canvas;
}

ExpandCanvas scaledTo(const ExpandCanvas& pair, _Size<int> size)
{
    const auto joined = joinToRGBA(pair.picture, pair.mask, false);
    const _Rect<float> all(0.0f, 0.0f, static_cast<float>(joined->width()), static_cast<float>(joined->height()));
    const TransformComputer computer(ImageTransformSettings(joined->size(), all, size, ImageTransformType::Affine,
                                                            AffineTransform(), CropDescription(), 0));
    const SplittedRGBA scaled =
        splitRGBA(computer.createTransformedRoi(*joined, computer.getWorkingResizeParameters()));
    // The service gets a hard mask, without the soft rim of resampling.
    binarize(*scaled.mask);
    return {scaled.image, scaled.mask};
}

} // namespace orvo
