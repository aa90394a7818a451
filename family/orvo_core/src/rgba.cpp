#include <orvo_core/parallel.hpp>
#include <orvo_core/rgba.hpp>

#include <algorithm>
#include <stdexcept>

namespace orvo {

std::shared_ptr<_ImageData<PixelRGBA<float>>>
joinToRGBA(const std::shared_ptr<const _ImageData<PixelRGB<float>>>& picture,
           const std::shared_ptr<const _ImageData<float>>& mask, bool /*flag*/)
{
    if (!picture || !mask)
        throw std::invalid_argument("joinToRGBA: the picture or its mask is missing");
    if (picture->size() != mask->size())
        throw std::invalid_argument("joinToRGBA: the mask has another size than the picture");
    auto joined = std::make_shared<_ImageData<PixelRGBA<float>>>(picture->size(), picture->colorProfile());
    forEachRow(picture->height(), [&](int y) {
        const PixelRGB<float>* const colour = picture->row(y);
        const float* const alpha = mask->row(y);
        PixelRGBA<float>* const out = joined->row(y);
        for (int x = 0; x < picture->width(); ++x)
            out[x] = {colour[x].r, colour[x].g, colour[x].b, alpha[x]};
    });
    return joined;
}

SplittedRGBA splitRGBA(const std::shared_ptr<const _ImageData<PixelRGBA<float>>>& joined)
{
    if (!joined)
        throw std::invalid_argument("splitRGBA: the picture is missing");
    SplittedRGBA split{std::make_shared<_ImageData<PixelRGB<float>>>(joined->size(), joined->colorProfile()),
                       std::make_shared<MaskImage>(joined->size())};
    forEachRow(joined->height(), [&](int y) {
        const PixelRGBA<float>* const in = joined->row(y);
        PixelRGB<float>* const colour = split.image->row(y);
        float* const alpha = split.mask->row(y);
        for (int x = 0; x < joined->width(); ++x) {
            colour[x] = {in[x].r, in[x].g, in[x].b};
            alpha[x] = in[x].a;
        }
    });
    return split;
}

void removeWhite(_ImageData<PixelRGB<float>>& picture, const _ImageData<float>& coverage)
{
    // Half a step of 8 bits: below it the colour is lost in rounding, and white is as good as any.
    constexpr float kLeastCoverage = 0.5f / 255.0f;
    if (picture.size() != coverage.size())
        throw std::invalid_argument("removeWhite: the coverage has another size than the picture");
    forEachRow(picture.height(), [&](int y) {
        PixelRGB<float>* const pixels = picture.row(y);
        const float* const covers = coverage.row(y);
        for (int x = 0; x < picture.width(); ++x) {
            const float share = covers[x];
            if (!(share >= kLeastCoverage && share < 1.0f))
                continue;
            const auto without = [share](float v) { return std::max(0.0f, (v - 1.0f) / share + 1.0f); };
            pixels[x] = {without(pixels[x].r), without(pixels[x].g), without(pixels[x].b)};
        }
    });
}

} // namespace orvo
