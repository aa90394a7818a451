#include "GenProcessorBase/post_render.hpp"

#include <orvo_core/parallel.hpp>

namespace orvo {
namespace {

using Picture = _ImageData<PixelRGB<float>>;

constexpr float kOverlayOpacity = 0.5f;

// Red of sRGB in the profile of `picture`.
PixelRGB<float> overlayColour(const Picture& picture)
{
    constexpr PixelRGB<float> kRed{1.0f, 0.0f, 0.0f};
    const auto profile = picture.colorProfile();
    if (!profile || *profile == *ColorProfileType::sRGB())
        return kRed;
    const Picture red({1, 1}, kRed, ColorProfileType::sRGB());
    auto converted = std::make_shared<Picture>(_Size<int>(1, 1), profile);
    red.colorTransform(converted, true);
    return converted->data()[0];
}

} // namespace

PostRenderDataI::~PostRenderDataI() = default;

std::shared_ptr<const MaskImage> PostRenderDataI::maskToShow(const PreviewContext&, PostRenderType) const
{
    return nullptr;
}

std::shared_ptr<Picture> postRender(const std::shared_ptr<PostRenderDataI>& data,
                                    std::shared_ptr<const Picture> picture, const PreviewContext& context,
                                    const PostRenderType& channel)
{
    if (!picture)
        return nullptr;
    auto result = picture->copy({});
    if (!data || data->type != PostRenderDataI::kErase)
        return result;
    auto mask = data->maskToShow(context, channel);
    if (!mask)
        return result;
    if (mask->size() != result->size())
        mask = mask->resize(result->size(), {}, true);
    const PixelRGB<float> colour = overlayColour(*result);
    PixelRGB<float>* const pixels = result->data();
    const float* const samples = mask->data();
    forEachRange(result->pixelCount(), [&](std::size_t first, std::size_t last) {
        for (std::size_t i = first; i < last; ++i) {
            const float share = samples[i] * kOverlayOpacity;
            pixels[i].r += (colour.r - pixels[i].r) * share;
            pixels[i].g += (colour.g - pixels[i].g) * share;
            pixels[i].b += (colour.b - pixels[i].b) * share;
        }
    });
    return result;
}

} // namespace orvo
