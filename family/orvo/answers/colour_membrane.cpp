#include "answers/colour_membrane.hpp"

#include <orvo_core/parallel.hpp>

#include <algorithm>
#include <cmath>
#include <memory>
#include <vector>

namespace orvo {
namespace {

// Side in pixels of the blocks whose differences are taken: colours are evened out, not structure.
constexpr int kBlock = 4;

// Red, green and blue differences times their weight, and the weight.
using Level = _ImageData<PixelRGBA<float>>;

PixelRGBA<float> sum(const PixelRGBA<float>& a, const PixelRGBA<float>& b)
{
    return {a.r + b.r, a.g + b.g, a.b + b.b, a.a + b.a};
}

PixelRGBA<float> scaled(const PixelRGBA<float>& p, float f) { return {p.r * f, p.g * f, p.b * f, p.a * f}; }

int blocks(int length, int size) { return (length + size - 1) / size; }

std::shared_ptr<Level> blockDifferences(const _ImageData<PixelRGB<float>>& result,
                                        const _ImageData<PixelRGB<float>>& source, const _ImageData<float>& mask)
{
    auto level =
        std::make_shared<Level>(_Size<int>(blocks(result.width(), kBlock), blocks(result.height(), kBlock)), nullptr);
    forEachRow(level->height(), [&](int by) {
        for (int bx = 0; bx < level->width(); ++bx) {
            PixelRGBA<float> total;
            const int bottom = std::min((by + 1) * kBlock, result.height());
            const int right = std::min((bx + 1) * kBlock, result.width());
            for (int y = by * kBlock; y < bottom; ++y)
                for (int x = bx * kBlock; x < right; ++x) {
                    const float w = std::max(0.0f, 1.0f - mask.row(y)[x]);
                    const PixelRGB<float>& s = source.row(y)[x];
                    const PixelRGB<float>& r = result.row(y)[x];
                    const PixelRGBA<float> one{(s.r - r.r) * w, (s.g - r.g) * w, (s.b - r.b) * w, w};
                    if (std::isfinite(one.r + one.g + one.b + one.a))
                        total = sum(total, one);
                }
            level->row(by)[bx] = scaled(total, 1.0f / (kBlock * kBlock));
        }
    });
    return level;
}

// Half the size. Weights are clamped to 1, so that dense areas of a fine level count no more than once.
std::shared_ptr<Level> pushed(const Level& fine)
{
    auto level = std::make_shared<Level>(_Size<int>(blocks(fine.width(), 2), blocks(fine.height(), 2)), nullptr);
    forEachRow(level->height(), [&](int y) {
        for (int x = 0; x < level->width(); ++x) {
            PixelRGBA<float> total;
            for (int dy = 0; dy < 2; ++dy)
                for (int dx = 0; dx < 2; ++dx)
                    if (2 * y + dy < fine.height() && 2 * x + dx < fine.width())
                        total = sum(total, fine.row(2 * y + dy)[2 * x + dx]);
            level->row(y)[x] = total.a > 1.0f ? scaled(total, 1.0f / total.a) : total;
        }
    });
    return level;
}

// The value at a position in samples of the level, whose centres are at halves.
PixelRGBA<float> interpolated(const Level& level, float x, float y)
{
    const auto split = [](float at, int length, int& low, int& high) {
        const float place = std::clamp(at - 0.5f, 0.0f, static_cast<float>(length - 1));
        low = static_cast<int>(place);
        high = std::min(low + 1, length - 1);
        return place - static_cast<float>(low);
    };
    int x0 = 0, x1 = 0, y0 = 0, y1 = 0;
    const float fx = split(x, level.width(), x0, x1);
    const float fy = split(y, level.height(), y0, y1);
    const auto mixed = [](const PixelRGBA<float>& a, const PixelRGBA<float>& b, float t) {
        return sum(scaled(a, 1.0f - t), scaled(b, t));
    };
    return mixed(mixed(level.row(y0)[x0], level.row(y0)[x1], fx), mixed(level.row(y1)[x0], level.row(y1)[x1], fx), fy);
}

// Fills the unknown part of a level from the coarser one, which is complete.
void pull(Level& level, const Level& coarse)
{
    forEachRow(level.height(), [&](int y) {
        for (int x = 0; x < level.width(); ++x) {
            PixelRGBA<float>& pixel = level.row(y)[x];
            const float missing = std::max(0.0f, 1.0f - pixel.a);
            if (missing == 0.0f)
                continue;
            const auto below =
                interpolated(coarse, (static_cast<float>(x) + 0.5f) / 2.0f, (static_cast<float>(y) + 0.5f) / 2.0f);
            pixel = sum(pixel, scaled(below, missing));
            if (pixel.a > 0.0f)
                pixel = scaled(pixel, 1.0f / pixel.a);
        }
    });
}

} // namespace

void addMembrane(_ImageData<PixelRGB<float>>& result, const _ImageData<PixelRGB<float>>& source,
                 const _ImageData<float>& mask)
{
    if (result.pixelCount() == 0)
        return;
    std::vector<std::shared_ptr<Level>> levels = {blockDifferences(result, source, mask)};
    while (levels.back()->width() > 1 || levels.back()->height() > 1)
        levels.push_back(pushed(*levels.back()));
    PixelRGBA<float>& top = levels.back()->row(0)[0];
    if (!(top.a > 0.0f))
        return;
    top = scaled(top, 1.0f / top.a);
    for (std::size_t i = levels.size() - 1; i > 0; --i)
        pull(*levels[i - 1], *levels[i]);
    forEachRow(result.height(), [&](int y) {
        for (int x = 0; x < result.width(); ++x) {
            if (mask.row(y)[x] == 0.0f)
                continue; // not blended in
            const auto add = interpolated(*levels[0], (static_cast<float>(x) + 0.5f) / kBlock,
                                          (static_cast<float>(y) + 0.5f) / kBlock);
            PixelRGB<float>& pixel = result.row(y)[x];
            pixel = {pixel.r + add.r, pixel.g + add.g, pixel.b + add.b};
        }
    });
}

} // namespace orvo
