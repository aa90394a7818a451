#include "composer/crop_fitting.hpp"

#include <orvo_core/rgba.hpp>
#include <orvo_image_processing/image_transform.hpp>
#include <orvo_logger/logstream.hpp>

#include <algorithm>
#include <iostream>
#include <memory>
#include <numbers>

namespace orvo {
namespace {

constexpr PixelRGB<float> kGray{0.5f, 0.5f, 0.5f};
constexpr _Size<int> kBlankSize{100, 100};

float ratio(int target, int context) { return static_cast<float>(target) / static_cast<float>(context); }

} // namespace

RenderedData blankPreview()
{
    RenderedData blank;
    blank.image = std::make_shared<_ImageData<PixelRGB<float>>>(kBlankSize, kGray, ColorProfileType::melissaRGB());
    blank.isPlaceholder = true;
    return blank;
}

RenderedData placeholderPreview(const _Size<int>& size)
{
    RenderedData gray;
    gray.image = std::make_shared<_ImageData<PixelRGB<float>>>(size, kGray, ColorProfileType::sRGB());
    gray.mask = std::make_shared<MaskImage>(size, 1.0f);
    gray.context.size = size;
    gray.colorProfile = {};
    gray.isPlaceholder = true;
    return gray;
}

CropDescription processCropInfo(CropDescription crop, const _Size<int>& contextSize, const _Size<int>& targetSize)
{
    if (crop == CropDescription())
        return crop;
    if (contextSize == _Size<int>()) {
        std::cerr << functionSignature() << std::endl
                  << "PanoramaPreviewComposer::processCropInfo: if cropDescription is present, context.size must be "
                     "specified"
                  << std::endl;
    } else if (contextSize != targetSize) {
        crop.scaleX = ratio(targetSize.width, contextSize.width);
        crop.scaleY = ratio(targetSize.height, contextSize.height);
    }
    return fitCropToCanvas(crop, targetSize);
}

CropDescription fitCropToCanvas(CropDescription crop, const _Size<int>& target)
{
    const _Rect<int> scaled = crop.getCropRect();
    crop.scaleX = 1.0f;
    crop.scaleY = 1.0f;
    crop.rect.x = std::min(target.width - 1, std::max(scaled.x, 0));
    crop.rect.y = std::min(target.height - 1, std::max(scaled.y, 0));
    crop.rect.width = std::min(target.width - crop.rect.x, std::max(scaled.width, 1));
    crop.rect.height = std::min(target.height - crop.rect.y, std::max(scaled.height, 1));
    return crop;
}

cv::Rect boundsOfCrop(const CropDescription& crop, const _Size<int>& canvas)
{
    const _Rect<int> rect = crop.getCropRect();
    cv::Rect box(rect.x, rect.y, rect.width, rect.height);
    if (crop.angle != 0.0f) {
        constexpr float kDegrees = 180.0f / std::numbers::pi_v<float>;
        const cv::Point2f centre(static_cast<float>(rect.x) + static_cast<float>(rect.width) / 2.0f,
                                 static_cast<float>(rect.y) + static_cast<float>(rect.height) / 2.0f);
        box = cv::RotatedRect(centre, cv::Size2f(static_cast<float>(rect.width), static_cast<float>(rect.height)),
                              crop.angle * kDegrees)
                  .boundingRect();
    }
    return box & cv::Rect(0, 0, canvas.width, canvas.height);
}

RenderedData applyCrop(const std::shared_ptr<const _ImageData<PixelRGB<float>>>& image,
                       const std::shared_ptr<const _ImageData<float>>& mask, CropDescription crop)
{
    RenderedData result;
    if (!image)
        return result;
    const _Rect<int> whole(0, 0, image->width(), image->height());
    if (crop.getCropRect() == _Rect<int>())
        crop.rect = whole;
    const _Rect<int> rect = crop.getCropRect();
    if (crop.angle == 0.0f && rect == whole) {
        result.image = image;
        result.mask = mask;
        result.context = {image->size(), whole};
        return result;
    }
    const _Size<int> size = rect.size();
    result.context = {size, rect};
    const bool isInside =
        rect.x >= 0 && rect.y >= 0 && rect.x + rect.width <= image->width() && rect.y + rect.height <= image->height();
    if (crop.angle == 0.0f && isInside) { // the same pixels without two more planes
        result.image = image->copy(rect);
        result.mask = mask ? mask->copy(rect) : nullptr;
        return result;
    }
    const TransformComputer computer(
        {size, _Rect<float>(0.0f, 0.0f, static_cast<float>(size.width), static_cast<float>(size.height)), size,
         ImageTransformType::Affine, crop.getAffineTransformForCanvas(size), crop, 0});
    const ResizeParameters all = computer.getWorkingResizeParameters();
    if (!mask) {
        result.image = computer.createTransformedRoi(*image, all);
        return result;
    }
    auto joined = joinToRGBA(image, mask, false);
    joined = computer.createTransformedRoi(*joined, all);
    SplittedRGBA split = splitRGBA(joined);
    split.mask->clamp();
    result.image = std::move(split.image);
    result.mask = std::move(split.mask);
    return result;
}

} // namespace orvo
