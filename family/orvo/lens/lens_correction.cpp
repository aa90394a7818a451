#include "common/catmull_rom.hpp"
#include "common/curve_tables.hpp"
#include "lens/lens_database.hpp"

#include <orvo/lens_correction.hpp>
#include <orvo_common/memory_manager.hpp>
#include <orvo_common/scoped_timer.hpp>
#include <orvo_core/parallel.hpp>

#include <algorithm>
#include <cmath>
#include <vector>

namespace orvo {
namespace {

using Picture = _ImageData<PixelRGB<float>>;

// Vignetting changes by less than a part in ten thousand of its curvature over so few pixels, so it is evaluated on a
// grid and interpolated in between.
constexpr int kGridStep = 16;

class GainGrid
{
public:
    GainGrid(const details::LensModel& lens, _Size<int> size)
        : columns(size.width / kGridStep + 2), rows(size.height / kGridStep + 2),
          gains(static_cast<std::size_t>(columns) * static_cast<std::size_t>(rows))
    {
        forEachRow(rows, [&](int row) {
            for (int column = 0; column < columns; ++column)
                gains[place(column, row)] =
                    lens.gainAt(static_cast<float>(column * kGridStep), static_cast<float>(row * kGridStep));
        });
    }

    [[nodiscard]] float at(float x, float y) const
    {
        const float gx = std::clamp(x / kGridStep, 0.0f, static_cast<float>(columns - 1));
        const float gy = std::clamp(y / kGridStep, 0.0f, static_cast<float>(rows - 1));
        const int column = std::min(static_cast<int>(gx), columns - 2);
        const int row = std::min(static_cast<int>(gy), rows - 2);
        const float wx = gx - static_cast<float>(column);
        const float wy = gy - static_cast<float>(row);
        const float above = std::lerp(gains[place(column, row)], gains[place(column + 1, row)], wx);
        const float below = std::lerp(gains[place(column, row + 1)], gains[place(column + 1, row + 1)], wx);
        return std::lerp(above, below, wy);
    }

private:
    [[nodiscard]] std::size_t place(int column, int row) const
    {
        return static_cast<std::size_t>(row) * static_cast<std::size_t>(columns) + static_cast<std::size_t>(column);
    }

    int columns;
    int rows;
    std::vector<float> gains;
};

// The picture at a position between its pixels; its edge is repeated outside.
PixelRGB<float> sampleAt(const Picture& picture, float x, float y)
{
    const float sx = std::clamp(x, 0.0f, static_cast<float>(picture.width() - 1));
    const float sy = std::clamp(y, 0.0f, static_cast<float>(picture.height() - 1));
    const int left = static_cast<int>(sx);
    const int top = static_cast<int>(sy);
    const auto wx = details::catmullRom(sx - static_cast<float>(left));
    const auto wy = details::catmullRom(sy - static_cast<float>(top));
    PixelRGB<float> sum;
    for (int j = 0; j < 4; ++j) {
        const PixelRGB<float>* const row = picture.row(std::clamp(top - 1 + j, 0, picture.height() - 1));
        for (int i = 0; i < 4; ++i) {
            const PixelRGB<float>& p = row[std::clamp(left - 1 + i, 0, picture.width() - 1)];
            const float weight = wx[static_cast<std::size_t>(i)] * wy[static_cast<std::size_t>(j)];
            sum.r += weight * p.r;
            sum.g += weight * p.g;
            sum.b += weight * p.b;
        }
    }
    return sum;
}

void brighten(PixelRGB<float>& pixel, float gain, bool linear)
{
    const details::CurveTables& tables = details::CurveTables::instance();
    for (float* v : {&pixel.r, &pixel.g, &pixel.b})
        *v = linear ? *v * gain : tables.encode(tables.decode(*v) * gain);
}

} // namespace

PicturePointer applyAutoLensCorrection(const PicturePointer& image,
                                       const std::shared_ptr<const ImageMetadata>& metadata,
                                       const std::shared_ptr<AdditionalRawMetadata>& rawMetadata)
{
    if (!image || !metadata || image->pixelCount() == 0)
        return image;
    const ScopedTimer timer("applyAutoLensCorrection", 0);
    if (rawMetadata)
        rawMetadata->wait();
    const std::unique_ptr<details::LensModel> lens = details::findLensModel(*metadata, image->size());
    if (!lens)
        return image;

    auto corrected = std::make_shared<Picture>(image->size(), image->colorProfile());
    const bool linear = image->colorProfile() && image->colorProfile()->isLinear();
    const bool bends = lens->bends();
    const bool darkens = lens->darkens();
    const std::unique_ptr<const GainGrid> gains = darkens ? std::make_unique<GainGrid>(*lens, image->size()) : nullptr;
    forEachRow(image->height(), [&](int y) {
        const int width = image->width();
        const ManagedPlane<float> places(bends ? static_cast<std::size_t>(width) * 2 : 0);
        if (bends)
            lens->sourcePlaces(y, places.data());
        PixelRGB<float>* const target = corrected->row(y);
        for (int x = 0; x < width; ++x) {
            const auto index = static_cast<std::size_t>(x) * 2;
            const float sx = bends ? places[index] : static_cast<float>(x);
            const float sy = bends ? places[index + 1] : static_cast<float>(y);
            target[x] = bends ? sampleAt(*image, sx, sy) : image->row(y)[x];
            if (darkens)
                brighten(target[x], gains->at(sx, sy), linear);
        }
    });
    return corrected;
}

} // namespace orvo
