// The render operations of a composer, on its worker.
#include "composer/composer_private.hpp"
#include "frame/call_frame.hpp"

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

// What the log names: the operations that a getCropPreview() or getFinalizePreview() consists of.
constexpr const char* kCreateFullPanorama =
    "orvo::RenderedData orvo::PanoramaPreviewComposer::createFullPanorama(WarpType, _Size<int>, _Rect<int>) const";
constexpr const char* kCalculatePreviewSize =
    "orvo::_Size<int> orvo::PanoramaPreviewComposer::calculatePreviewSize(_Size<int>) const";

// Limited to what an int holds: the caller may ask for any size.
int truncated(float value)
{
    constexpr float kLargest = 1e9f;
    return static_cast<int>(std::clamp(value, -kLargest, kLargest));
}

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

template <typename Map>
_Rect<int> mapped(const cv::Rect& rect, const Map& map)
{
    return {map(static_cast<float>(rect.x)), map(static_cast<float>(rect.y)), map(static_cast<float>(rect.width)),
            map(static_cast<float>(rect.height))};
}

} // namespace

Failure logException(const std::string& signature)
{
    try {
        throw;
    } catch (const std::exception& error) {
        LOG(__orvolog() << LogMessageType::Warning << signature << ": " << error.what());
    } catch (...) {
        LOG(__orvolog() << LogMessageType::Warning << signature << ": not a std::exception");
    }
    return details::failureOfOpenCv();
}

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
    const std::int32_t number = warpNumberOf(type);
    if (number != stitcher->getWarpType())
        cachedPreviewSize = {}; // of another canvas
    stitcher->setWarpType(number);
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

void PanoramaPreviewComposerPrivate::reportFailedRender(const ComposerSnapshot& taken,
                                                        const std::optional<Failure>& failure) const
{
    if (failure && taken.failureCallback && !isDropped)
        taken.failureCallback(*failure);
}

void PanoramaPreviewComposerPrivate::stateNothingDrawn() const
{
    if (run.cancelled())
        details::stateFailure(cancelledFailure());
    else if (stitcher->getStatus() != 1)
        details::stateFailure({FailureKind::Internal, {}, "no pictures that fit together are loaded"});
    else
        details::stateFailure(
            {FailureKind::UnfittingPictures, {}, "the requested part of the canvas shows nothing of the panorama"});
}

void PanoramaPreviewComposerPrivate::drawMain(WarpType type, const ComposerSnapshot& taken,
                                              const std::string& signature)
{
    if (!taken.mainCallback)
        return;
    const auto failure = logExceptions(signature, [&] {
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
    reportFailedRender(taken, failure);
}

void PanoramaPreviewComposerPrivate::drawUnderlay(WarpType type, const ComposerSnapshot& taken,
                                                  const std::string& signature)
{
    if ((!taken.underlayCallback && !taken.meaningfulPartCallback) || stitcher->getStatus() != 1)
        return;
    const auto failure = logExceptions(signature, [&] {
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
    reportFailedRender(taken, failure);
}

// Draws on the canvas of `type` throughout, although the composer's current projection may be another one by now, and
// the stitcher's still the former one: the picture would be squeezed into the shape of that canvas.
RenderedData PanoramaPreviewComposerPrivate::createFullPanorama(WarpType type, _Size<int> size, _Rect<int> roi)
{
    RenderedData data;
    if (cachedProjection == type && restoreCachedPreview(data, size, roi))
        return data;
    bool isDrawn = false;
    const auto failure = logExceptions(kCreateFullPanorama, [&] {
        const _Size<int> canvas = enterProjection(type);
        const _Size<int> previewSize = calculateSizeForPreview(type, size);
        const Panorama drawn = drawCanvas(canvas, previewSize, false);
        if (!drawn.image)
            return stateNothingDrawn();
        blendAlpha(drawn);
        const float factor = static_cast<float>(canvas.width) / static_cast<float>(previewSize.width);
        const _Rect<int> place =
            mapped(drawn.roi, [factor](float value) { return static_cast<int>(std::round(value * factor)); });
        data = dataOf(drawn, {size, place});
        cachedRoi = place;
        cachedProjection = type;
        // Not the profile: a kept picture is reported like a crop of it, in the profile of a default value.
        cachedPreview.image = data.image;
        cachedPreview.mask = data.mask;
        cachedPreview.context = data.context;
        isDrawn = true;
    });
    if (isDrawn)
        return data;
    if (failure)
        details::stateFailure(*failure);
    RenderedData nothing;
    nothing.isPlaceholder = true;
    return nothing;
}

_Size<int> PanoramaPreviewComposerPrivate::calculatePreviewSize(WarpType type, _Size<int> size)
{
    const _Size<int> canvas = enterProjection(type);
    if (cachedPreviewSize != _Size<int>())
        return cachedPreviewSize;
    _Size<int> found;
    const auto failure = logExceptions(kCalculatePreviewSize, [&] {
        const _Size<int> fitted = fittedSize(canvas.width, canvas.height);
        const Panorama drawn = drawCanvas(canvas, fitted, false);
        if (!drawn.image)
            return;
        const float ratio = size.height > size.width
                                ? static_cast<float>(drawn.roi.width) / static_cast<float>(size.width)
                                : static_cast<float>(drawn.roi.height) / static_cast<float>(size.height);
        found = {truncated(static_cast<float>(fitted.width) / ratio),
                 truncated(static_cast<float>(fitted.height) / ratio)};
        cachedPreviewSize = found;
    });
    if (failure)
        details::stateFailure(*failure);
    return found;
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
