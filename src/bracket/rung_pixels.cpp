#include "bracket/rung_pixels.hpp"

#include <orvo_core/parallel.hpp>

#include <algorithm>
#include <cstring>

namespace orvo {
namespace {

// A few megabytes of a large picture: enough work for all threads, small compared with a picture.
constexpr int kBandRows = 128;

const RungCurve kAsItIs({1.0f, 0.9f, 0.5f}, HighlightHue::PerChannel);

} // namespace

void RungCurve::applyInPlace(PixelRGB<float>* pixels, std::size_t count) const
{
    if (hue == HighlightHue::Kept)
        curve.applyToPixels(pixels, count);
    else
        curve.applyInPlace(&pixels->r, count * 3);
}

void RungCurve::apply(const PixelRGB<float>* from, PixelRGB<float>* to, std::size_t count) const
{
    if (from != to)
        std::memcpy(static_cast<void*>(to), from, count * sizeof(PixelRGB<float>));
    if (hue == HighlightHue::Kept)
        curve.applyToPixelsSerially(to, count);
    else
        curve.applySerially(&to->r, count * 3);
}

RungPixels::RungPixels(const PixelRGB<float>* pixels, int width, int height)
    : RungPixels(pixels, width, height, kAsItIs)
{}

RungPixels::RungPixels(const PixelRGB<float>* pixels, int width, int height, const RungCurve& curve)
    : source(pixels), columns(width), lines(height), exposure(curve)
{}

int RungPixels::bandRows() const { return handsOutSource() ? std::max(lines, 1) : kBandRows; }

const PixelRGB<float>* RungPixels::rows(int first, int end)
{
    const PixelRGB<float>* const requested = source + static_cast<std::ptrdiff_t>(first) * columns;
    if (handsOutSource())
        return requested;
    const auto rowPixels = static_cast<std::size_t>(columns);
    if (bandCapacity < end - first) {
        band.reset();
        band = std::make_unique<ManagedPlane<PixelRGB<float>>>(static_cast<std::size_t>(end - first) * rowPixels);
        bandCapacity = end - first;
    }
    PixelRGB<float>* const made = band->data();
    forEachRow(end - first, [&](int y) {
        const std::ptrdiff_t offset = static_cast<std::ptrdiff_t>(y) * columns;
        exposure.apply(requested + offset, made + offset, rowPixels);
    });
    return made;
}

} // namespace orvo
