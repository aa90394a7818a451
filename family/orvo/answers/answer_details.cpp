#include "answers/enlarged_picture.hpp"

#include <orvo/answers.hpp>
#include <orvo_core/parallel.hpp>

#include <algorithm>
#include <cmath>

namespace orvo {
namespace {

constexpr float kMostSharpening = 0.6f; // of the difference from the local mean, reached at twice the size
constexpr float PixelRGB<float>::*kChannels[] = {&PixelRGB<float>::r, &PixelRGB<float>::g, &PixelRGB<float>::b};

} // namespace

void applyDetailsToResult(AnswerPicture& result)
{
    const auto enlarged = std::dynamic_pointer_cast<const EnlargedPicture>(result);
    if (!enlarged)
        return;
    const auto strength = kMostSharpening * static_cast<float>(std::min(1.0, std::log2(enlarged->growth)));
    const int width = result->width();
    const int height = result->height();
    auto sharpened = std::make_shared<_ImageData<PixelRGB<float>>>(result->size(), result->colorProfile());
    const auto sharpenRow = [&](int y) {
        const PixelRGB<float>* const rows[3] = {result->row(std::max(0, y - 1)), result->row(y),
                                                result->row(std::min(height - 1, y + 1))};
        PixelRGB<float>* const out = sharpened->row(y);
        for (int x = 0; x < width; ++x) {
            const int columns[3] = {std::max(0, x - 1), x, std::min(width - 1, x + 1)};
            for (const auto channel : kChannels) {
                float sum = 0.0f;
                float least = rows[1][x].*channel;
                float most = least;
                for (const auto* const row : rows)
                    for (const int column : columns) {
                        const float v = row[column].*channel;
                        sum += v;
                        least = std::min(least, v);
                        most = std::max(most, v);
                    }
                const float v = rows[1][x].*channel;
                out[x].*channel = std::clamp(v + strength * (v - sum / 9.0f), least, most);
            }
        }
    };
    forEachRow(height, sharpenRow);
    result = sharpened;
}

} // namespace orvo
