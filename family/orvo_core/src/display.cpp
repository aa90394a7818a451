#include <orvo_core/display.hpp>

#include <utility>

namespace orvo {
namespace {

bool isReady(const _ImageData<PixelRGB<float>>* image, const std::shared_ptr<ColorProfile>& profile)
{
    return image == nullptr || !profile || image->colorProfile() == profile ||
           (image->colorProfile() && *image->colorProfile() == *profile);
}

} // namespace

std::shared_ptr<_ImageData<PixelRGB<float>>> prepareToDisplay(std::shared_ptr<_ImageData<PixelRGB<float>>> image,
                                                              const std::shared_ptr<ColorProfile>& profile)
{
    if (!isReady(image.get(), profile))
        image->convertTo(profile);
    return image;
}

std::shared_ptr<const _ImageData<PixelRGB<float>>>
prepareToDisplay(std::shared_ptr<const _ImageData<PixelRGB<float>>> image, const std::shared_ptr<ColorProfile>& profile)
{
    if (isReady(image.get(), profile))
        return image;
    std::shared_ptr<_ImageData<PixelRGB<float>>> converted;
    image->colorTransform(converted, profile, true);
    return converted;
}

} // namespace orvo
