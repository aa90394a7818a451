#include "GenEraseProcessor/erase_request.hpp"

#include "GenProcessorBase/fit_to_limits.hpp"

#include <orvo/answers.hpp>
#include <orvo_common/text.hpp>

#include <algorithm>
#include <cmath>
#include <stdexcept>
#include <utility>

namespace orvo {
namespace {

constexpr Base64EncodeParameters kEncoding(0, 8);
constexpr float kPicturesOfRequest = 2.0f; // picture and mask share the pixel budget

_Size<int> withinPixelBudget(_Size<int> size, std::int32_t maxPixels)
{
    const std::int64_t wanted = std::int64_t{size.width} * size.height * 2;
    if (wanted <= maxPixels)
        return size;
    const float scale =
        std::sqrt(static_cast<float>(maxPixels) /
                  (static_cast<float>(size.width) * static_cast<float>(size.height) * kPicturesOfRequest));
    const auto side = [scale](int length) { return std::max(1, static_cast<int>(static_cast<float>(length) * scale)); };
    return {side(size.width), side(size.height)};
}

// The first of `count` lines for which `hasSample` returns true; `count` if there is none.
template <typename HasSample>
int stepsToMask(int count, const HasSample& hasSample)
{
    int steps = 0;
    while (steps < count && !hasSample(steps))
        ++steps;
    return steps;
}

// One side of an answer before it is enlarged. The ratio corrects for a service that answers at a scale different from
// the request's; `sent` is 0 if the application does not know the size it sent.
int answerSide(int downsampled, int generated, int sent, int rect)
{
    const float ratio = sent > 0 ? static_cast<float>(generated) / static_cast<float>(sent) : 1.0f;
    const float side = static_cast<float>(downsampled) * ratio;
    // A larger side adds no detail, and a nonsensical `sent` could make it arbitrarily large.
    const auto most = static_cast<float>(std::max(generated, rect));
    return std::max(1, static_cast<int>(std::min(side, most)));
}

} // namespace

GenEraseData::GenEraseData(std::shared_ptr<const _ImageData<PixelRGB<float>>> picture,
                           std::shared_ptr<const _ImageData<float>> itsMask, const Base64EncodeParameters& encoding)
    : image(std::move(picture)), imageBase64(imageToBase64(image, encoding)), mask(std::move(itsMask)),
      maskBase64(imageToBase64(mask, encoding)), parameters(encoding)
{}

std::shared_ptr<const GenEraseData> GenEraseData::resized(_Size<int> size) const
{
    return std::make_shared<const GenEraseData>(image->resize(size, {}, true), mask->resize(size, {}, true),
                                                parameters);
}

_Rect<int> maskBounds(const TiledMaskImage& mask)
{
    const int width = mask.width();
    const int height = mask.height();
    constexpr int kTile = TiledMaskImage::kTileSize;
    // Tests a line tile by tile, since most tiles are empty and need no check of their samples.
    const auto tileIsEmpty = [&](int column, int row) {
        const auto& tile = mask.tile(column, row);
        return !tile.samples && isFloatEqual(tile.uniform, 0.0f);
    };
    const auto columnHas = [&](int x) {
        for (int y = 0; y < height; ++y) {
            if (y % kTile == 0 && tileIsEmpty(x / kTile, y / kTile)) {
                y += kTile - 1;
                continue;
            }
            if (!isFloatEqual(mask.getValue(x, y), 0.0f))
                return true;
        }
        return false;
    };
    const auto rowHas = [&](int y) {
        for (int x = 0; x < width; ++x) {
            if (x % kTile == 0 && tileIsEmpty(x / kTile, y / kTile)) {
                x += kTile - 1;
                continue;
            }
            if (!isFloatEqual(mask.getValue(x, y), 0.0f))
                return true;
        }
        return false;
    };
    const int left = stepsToMask(width, columnHas);
    const int right = width - 1 - stepsToMask(width, [&](int i) { return columnHas(width - 1 - i); });
    const int top = stepsToMask(height, rowHas);
    const int bottom = height - 1 - stepsToMask(height, [&](int i) { return rowHas(height - 1 - i); });
    if (right < left || bottom < top)
        return {};
    return {left, top, right - left + 1, bottom - top + 1};
}

std::shared_ptr<const GenEraseData> prepareEraseRequest(const Image& image, const TiledMaskImage& mask,
                                                        const RequestLimits& limits, const std::string& id,
                                                        GenerativeProcessorBaseImpl::RequestParameters& parameters)
{
    const _Rect<int> bounds = maskBounds(mask);
    if (bounds == _Rect<int>())
        return nullptr;
    const _Rect<int> roi = adjustProcessingRect(bounds, image.size(), {0, 0});
    const std::shared_ptr<MaskImage> roiMask = mask.maskImage(roi.size(), roi);
    const _Size<int> requestSize = withinPixelBudget(roi.size(), limits.pixels);
    const auto total = [](const GenEraseData& data) { return data.imageBase64.size() + data.maskBase64.size(); };
    const auto data = fitToLimits<GenEraseData>(
        std::make_shared<const GenEraseData>(image.developedModifiedImageData({requestSize, roi, true}),
                                             roiMask->resize(requestSize, {}, true), kEncoding),
        limits.base64Size, limits.aspect, total);
    // The service gets the mask as painted; the blend uses a feathered one.
    prepareBlendMask(roiMask);
    parameters.downsampledSize = calculateDownsampledSize(data->image->size(), roi.size());
    parameters.rect = roi;
    parameters.id = id;
    parameters.mask = roiMask;
    return data;
}

std::shared_ptr<KepTiledImageData> obtainModifiedData(const std::shared_ptr<Image>& image)
{
    const auto profile = ColorProfileType::melissaRGB();
    auto tiled = getKepModifiedImageData(image);
    if (!tiled)
        tiled = std::make_shared<KepTiledImageData>(image->size(), profile);
    auto copy = std::make_shared<KepTiledImageData>(image->size(), profile);
    tiled->prepareImageData(
        tiled->rect(),
        [&image](const _Rect<int>& rect, const std::shared_ptr<ColorProfile>&) {
            return image->imageData(rect.size(), rect, true);
        },
        true);
    tiled->copyTo(copy);
    return copy;
}

void applyEraseAnswer(const std::shared_ptr<Image>& image,
                      const GenerativeProcessorBaseImpl::RequestParameters& parameters,
                      const _ImageData<PixelRGB<float>>& generated, _Size<int> size)
{
    const _Rect<int>& rect = parameters.rect;
    const auto& mask = parameters.mask;
    if (!mask || rect.width < 1 || rect.height < 1)
        throw std::runtime_error("there is no request that the answer could belong to");
    const _Size<int> target{
        answerSide(parameters.downsampledSize.width, generated.width(), size.width, rect.width),
        answerSide(parameters.downsampledSize.height, generated.height(), size.height, rect.height)};
    AnswerPicture result = generated.resize(target, {}, true);
    upscaleToInitialSize(result, rect.size(), mask);
    applyDetailsToResult(result);
    const auto modified = obtainModifiedData(image);
    {
        auto current = modified->imageData();
        if (result->size() == mask->size())
            blendWithSource(result, current->resize(rect.size(), rect, true), mask);
        blendRoi(current, result, mask, rect);
    }
    image->setModifiedImageData(modified, "");
}

} // namespace orvo
