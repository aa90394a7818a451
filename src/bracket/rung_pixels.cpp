#include "bracket/rung_pixels.hpp"

#include <cstring>

namespace orvo {
namespace {

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

const PixelRGB<float>* RungPixels::rows(int first, int end, PixelRGB<float>* scratch) const
{
    const PixelRGB<float>* const requested = source + static_cast<std::ptrdiff_t>(first) * columns;
    if (exposure.isIdentity() && !apart)
        return requested;
    exposure.apply(requested, scratch, static_cast<std::size_t>(end - first) * static_cast<std::size_t>(columns));
    return scratch;
}

} // namespace orvo
