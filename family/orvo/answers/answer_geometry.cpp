#include "answers/enlarged_picture.hpp"

#include <orvo/answers.hpp>
#include <orvo/upscaling.hpp>
#include <orvo_core/parallel.hpp>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <vector>

namespace orvo {
namespace {

constexpr std::int64_t kLeastContext = 32; // pixels: even a dot needs context to guess from
constexpr std::int64_t kSidesAtMost = 2;   // services take pictures of moderate aspect, and squeezing costs detail
constexpr double kWorthUpscaling = 1.125;  // a smaller growth loses no structure
constexpr std::size_t kRgbFloats = 3;

struct Span
{
    int start;
    int length;
};

// Grows `start` and `length` to at least `least` about the same middle, within 0..limit.
Span grown(std::int64_t start, std::int64_t length, std::int64_t least, int limit)
{
    const std::int64_t wanted = std::min<std::int64_t>(std::max(length, least), limit);
    const std::int64_t begin = start - (wanted - length) / 2;
    return {static_cast<int>(std::clamp<std::int64_t>(begin, 0, limit - wanted)), static_cast<int>(wanted)};
}

// One axis of the rectangle with its context.
Span withContext(int start, int length, int limit)
{
    const std::int64_t margin = std::max<std::int64_t>(kLeastContext, length / 2);
    const auto begin = std::clamp<std::int64_t>(start - margin, 0, limit);
    const auto end = std::clamp<std::int64_t>(std::int64_t{start} + length + margin, 0, limit);
    return {static_cast<int>(begin), static_cast<int>(end - begin)};
}

} // namespace

_Rect<int> adjustProcessingRect(const _Rect<int>& roi, const _Size<int>& imageSize, _Size<int> minimum)
{
    const _Rect<int> whole{0, 0, imageSize.width, imageSize.height};
    const bool outside = roi.width < 1 || roi.height < 1 || roi.x >= imageSize.width || roi.y >= imageSize.height ||
                         std::int64_t{roi.x} + roi.width <= 0 || std::int64_t{roi.y} + roi.height <= 0;
    if (outside)
        return whole;
    const Span x = withContext(roi.x, roi.width, imageSize.width);
    const Span y = withContext(roi.y, roi.height, imageSize.height);
    const std::int64_t leastWidth = std::max<std::int64_t>(minimum.width, (y.length + kSidesAtMost - 1) / kSidesAtMost);
    const std::int64_t leastHeight =
        std::max<std::int64_t>(minimum.height, (x.length + kSidesAtMost - 1) / kSidesAtMost);
    const Span wide = grown(x.start, x.length, leastWidth, imageSize.width);
    const Span tall = grown(y.start, y.length, leastHeight, imageSize.height);
    return {wide.start, tall.start, wide.length, tall.length};
}

_Rect<int> calculateMaskRoi(const std::shared_ptr<const _ImageData<float>>& mask)
{
    if (!mask)
        return {};
    struct RowBounds
    {
        int left = -1; // none
        int right = -1;
    };
    std::vector<RowBounds> bounds(static_cast<std::size_t>(mask->height()));
    forEachRow(mask->height(), [&](int y) {
        const float* const row = mask->row(y);
        const float* const end = row + mask->width();
        const auto above = [](float v) { return v > 0.0f; };
        const float* const first = std::find_if(row, end, above);
        if (first == end)
            return;
        const float* last = end - 1;
        while (!above(*last))
            --last;
        bounds[static_cast<std::size_t>(y)] = {static_cast<int>(first - row), static_cast<int>(last - row)};
    });
    int left = mask->width(), right = -1, top = -1, bottom = -1;
    for (int y = 0; y < mask->height(); ++y) {
        const RowBounds& row = bounds[static_cast<std::size_t>(y)];
        if (row.right < 0)
            continue;
        left = std::min(left, row.left);
        right = std::max(right, row.right);
        top = top < 0 ? y : top;
        bottom = y;
    }
    return right < 0 ? _Rect<int>() : _Rect<int>(left, top, right - left + 1, bottom - top + 1);
}

_Size<int> calculateDownsampledSize(const _Size<int>& requestSize, const _Size<int>& rectSize)
{
    if (requestSize.width < 1 || requestSize.height < 1 || rectSize.width < 1 || rectSize.height < 1)
        return {};
    const std::int64_t requestWidth = requestSize.width, requestHeight = requestSize.height;
    const std::int64_t width = rectSize.width, height = rectSize.height;
    if (requestWidth >= width && requestHeight >= height)
        return rectSize;
    // The side that has to shrink more decides; the other follows, rounded to nearest.
    if (requestWidth * height <= requestHeight * width) {
        const std::int64_t other = (height * requestWidth + width / 2) / width;
        return {requestSize.width,
                static_cast<int>(std::clamp<std::int64_t>(other, 1, std::min(requestHeight, height)))};
    }
    const std::int64_t other = (width * requestHeight + height / 2) / height;
    return {static_cast<int>(std::clamp<std::int64_t>(other, 1, std::min(requestWidth, width))), requestSize.height};
}

void upscaleToInitialSize(AnswerPicture& result, const _Size<int>& size,
                          const std::shared_ptr<const _ImageData<float>>& mask)
{
    if (!result || result->pixelCount() == 0 || size.width < 1 || size.height < 1)
        throw std::invalid_argument("upscaleToInitialSize: a picture and a size are needed");
    if (result->size() == size)
        return;
    const double growth = std::max(static_cast<double>(size.width) / result->width(),
                                   static_cast<double>(size.height) / result->height());
    if (growth >= kWorthUpscaling) {
        UpscaleAISettings settings;
        settings.passes = std::clamp(static_cast<int>(std::lround(std::log2(growth))), 1, kMostUpscalePasses);
        settings.faces = false;
        const auto where = mask && mask->pixelCount() > 0 ? mask->resize(result->size(), {}, true) : nullptr;
        // Fails only if memory is short or a network is unusable, which is logged; a softer picture beats none.
        if (const auto larger = upscaleX(result, settings, where, nullptr, {}))
            result = larger;
    }
    const auto fitting = result->size() == size ? result : result->resize(size, {}, true);
    if (growth < kWorthUpscaling) {
        result = fitting;
        return;
    }
    const auto remembering = std::make_shared<EnlargedPicture>(size, fitting->colorProfile(), growth);
    std::memcpy(static_cast<void*>(remembering->data()), fitting->data(),
                fitting->pixelCount() * kRgbFloats * sizeof(float));
    result = remembering;
}

} // namespace orvo
