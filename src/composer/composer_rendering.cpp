// The render operations of a composer, on its worker.
#include "composer/composer_private.hpp"

#include <orvo_core/parallel.hpp>
#include <orvo_logger/logstream.hpp>

#include <algorithm>
#include <cmath>
#include <exception>

namespace orvo {
namespace {

// Longest side of pictures that show the whole canvas.
constexpr float kCanvasSide = 1500.0f;
// Longest side of an underlay that shows the content only.
constexpr float kMeaningfulSide = 2000.0f;

int truncated(float value) { return static_cast<int>(value); }

float fitting(float side, int width, int height)
{
    return std::min(side / static_cast<float>(height), side / static_cast<float>(width));
}

_Size<int> scaled(const _Size<int>& size, float factor)
{
    return {truncated(static_cast<float>(size.width) * factor), truncated(static_cast<float>(size.height) * factor)};
}

// A render that reports the profile of its pixels.
RenderedData dataOf(const Panorama& panorama, const PreviewContext& context)
{
    RenderedData data;
    data.image = panorama.image;
    data.mask = panorama.mask;
    data.context = context;
    data.colorProfile = panorama.image->colorProfile();
    return data;
}

void logException(const std::string& signature, const char* text)
{
    LOG(__orvolog() << LogMessageType::Warning << signature << ": " << text);
}

template <typename Body>
void logExceptions(const std::string& signature, const Body& body)
{
    try {
        body();
    } catch (const std::exception& error) {
        logException(signature, error.what());
    } catch (...) {
        logException(signature, "not a std::exception");
    }
}

template <typename Map>
_Rect<int> mapped(const cv::Rect& rect, const Map& map)
{
    return {map(static_cast<float>(rect.x)), map(static_cast<float>(rect.y)), map(static_cast<float>(rect.width)),
            map(static_cast<float>(rect.height))};
}

} // namespace

_Size<int> fittedSize(int width, int height)
{
    return scaled(_Size<int>(width, height), fitting(kCanvasSide, width, height));
}

void blendAlpha(const Panorama& panorama)
{
    if (!panorama.image || !panorama.mask)
        return;
    PixelRGB<float>* const pixels = panorama.image->data();
    const float* const mask = panorama.mask->data();
    forEachRange(panorama.image->pixelCount(), [=](std::size_t first, std::size_t last) {
        for (std::size_t i = first; i < last; ++i) {
            pixels[i].r = (pixels[i].r - 1.0f) * mask[i] + 1.0f;
            pixels[i].g = (pixels[i].g - 1.0f) * mask[i] + 1.0f;
            pixels[i].b = (pixels[i].b - 1.0f) * mask[i] + 1.0f;
        }
    });
}

PanoramaStitcher::CancelFunction PanoramaPreviewComposerPrivate::stitcherCancel() const
{
    return [this] { return run.cancelled(); };
}

_Size<int> PanoramaPreviewComposerPrivate::enterProjection(WarpType type)
{
    stitcher->setWarpType(warpNumberOf(type));
    const cv::Rect bounds = stitcher->projectionBounds();
    return {bounds.width, bounds.height};
}

void PanoramaPreviewComposerPrivate::resetCachedSettings()
{
    cachedPreviewSize = {};
    cachedRoi = {};
}

Panorama PanoramaPreviewComposerPrivate::drawCanvas(const _Size<int>& canvas, const _Size<int>& size, bool keepCanvas)
{
    return stitcher->makePanorama({0, 0, canvas.width, canvas.height}, size, keepCanvas, stitcherCancel());
}

void PanoramaPreviewComposerPrivate::drawMain(WarpType type, const ComposerSnapshot& taken,
                                              const std::string& signature)
{
    if (!taken.mainCallback)
        return;
    logExceptions(signature, [&] {
        resetCachedSettings();
        const _Size<int> canvas = enterProjection(type);
        const bool isWhole = taken.context.roi == _Rect<int>();
        const _Rect<int> roi = isWhole ? _Rect<int>(0, 0, canvas.width, canvas.height) : taken.context.roi;
        _Size<int> size = taken.context.size;
        if (size == _Size<int>())
            size = isWhole ? fittedSize(roi.width, roi.height) : roi.size();
        size = {std::min(roi.width, size.width), std::min(roi.height, size.height)};
        const Panorama drawn = stitcher->makePanorama(roi, size, true, stitcherCancel());
        if (drawn.image)
            taken.mainCallback(dataOf(drawn, taken.context));
    });
}

void PanoramaPreviewComposerPrivate::drawUnderlay(WarpType type, const ComposerSnapshot& taken,
                                                  const std::string& signature)
{
    if ((!taken.underlayCallback && !taken.meaningfulPartCallback) || stitcher->getStatus() != 1)
        return;
    logExceptions(signature, [&] {
        resetCachedSettings();
        const _Size<int> canvas = enterProjection(type);
        const _Rect<int> whole(0, 0, canvas.width, canvas.height);
        const float s = fitting(kCanvasSide, canvas.width, canvas.height);
        _Size<int> size = scaled(canvas, s);
        const bool keepCanvas = !taken.meaningfulPartCallback;
        Panorama drawn = drawCanvas(canvas, size, keepCanvas);
        if (!drawn.image)
            return;
        if (keepCanvas) {
            // The position of the content in a picture of the whole canvas is unknown, so the first size is final.
            taken.underlayCallback(dataOf(drawn, {size, whole}));
            return;
        }
        // The panorama may fill a small part of the canvas: draw it again, with the content at full size.
        const float k = std::min(kMeaningfulSide * s / static_cast<float>(drawn.roi.height),
                                 kMeaningfulSide * s / static_cast<float>(drawn.roi.width));
        size = scaled(canvas, k);
        drawn = {};
        drawn = drawCanvas(canvas, size, false);
        if (drawn.image)
            taken.meaningfulPartCallback(drawn.image, drawn.mask,
                                         mapped(drawn.roi, [k](float value) { return truncated(value / k); }));
    });
}

// Members of the composer, because the log contains their signatures.
RenderedData PanoramaPreviewComposer::createFullPanorama(PanoramaPreviewComposerPrivate& state, WarpType type,
                                                         _Size<int> size, _Rect<int> roi)
{
    RenderedData data;
    if (state.cachedProjection == type && state.restoreCachedPreview(data, size, roi))
        return data;
    bool isDrawn = false;
    logExceptions(functionSignature(), [&] {
        const _Size<int> previewSize = state.calculateSizeForPreview(type, size);
        const _Size<int> canvas = state.enterProjection(type);
        const Panorama drawn = state.drawCanvas(canvas, previewSize, false);
        if (!drawn.image)
            return;
        blendAlpha(drawn);
        const float factor = static_cast<float>(canvas.width) / static_cast<float>(previewSize.width);
        const _Rect<int> place =
            mapped(drawn.roi, [factor](float value) { return static_cast<int>(std::round(value * factor)); });
        data = dataOf(drawn, {size, place});
        state.cachedRoi = place;
        state.cachedProjection = type;
        state.cachedPreview.image = data.image;
        state.cachedPreview.mask = data.mask;
        state.cachedPreview.context = data.context;
        isDrawn = true;
    });
    if (isDrawn)
        return data;
    RenderedData nothing;
    nothing.isPlaceholder = true;
    return nothing;
}

_Size<int> PanoramaPreviewComposer::calculatePreviewSize(PanoramaPreviewComposerPrivate& state, WarpType type,
                                                         _Size<int> size)
{
    if (state.cachedPreviewSize != _Size<int>())
        return state.cachedPreviewSize;
    _Size<int> found;
    logExceptions(functionSignature(), [&] {
        const _Size<int> canvas = state.enterProjection(type);
        const _Size<int> fitted = fittedSize(canvas.width, canvas.height);
        const Panorama drawn = state.drawCanvas(canvas, fitted, false);
        if (!drawn.image)
            return;
        const float ratio = size.height > size.width
                                ? static_cast<float>(drawn.roi.width) / static_cast<float>(size.width)
                                : static_cast<float>(drawn.roi.height) / static_cast<float>(size.height);
        found = {truncated(static_cast<float>(fitted.width) / ratio),
                 truncated(static_cast<float>(fitted.height) / ratio)};
        state.cachedPreviewSize = found;
    });
    return found;
}

RenderedData PanoramaPreviewComposerPrivate::createFullPanorama(WarpType type, _Size<int> size, _Rect<int> roi)
{
    return PanoramaPreviewComposer::createFullPanorama(*this, type, size, roi);
}

_Size<int> PanoramaPreviewComposerPrivate::calculatePreviewSize(WarpType type, _Size<int> size)
{
    return PanoramaPreviewComposer::calculatePreviewSize(*this, type, size);
}

bool PanoramaPreviewComposerPrivate::restoreCachedPreview(RenderedData& data, _Size<int> size, _Rect<int> roi) const
{
    if (!cachedPreview.image || cachedPreview.context.size != size || roi == _Rect<int>() || cachedRoi != roi)
        return false;
    data = cachedPreview;
    return true;
}

_Size<int> PanoramaPreviewComposerPrivate::calculateSizeForPreview(WarpType type, _Size<int> size)
{
    const cv::Rect bounds = stitcher->projectionBounds();
    const _Size<int> canvas(bounds.width, bounds.height);
    return size == _Size<int>() || size == canvas ? canvas : calculatePreviewSize(type, size);
}

} // namespace orvo
