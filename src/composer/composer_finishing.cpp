// Crop preview, final preview and the finished picture of a composer, on its worker.
#include "composer/composer_private.hpp"
#include "composer/crop_fitting.hpp"
#include "frame/call_frame.hpp"

#include <orvo_core/parallel.hpp>
#include <orvo_logger/logstream.hpp>

#include <algorithm>
#include <exception>
#include <utility>

namespace orvo {
namespace {

_Size<int> limited(const _Size<int>& size)
{
    const cv::Size limit = PanoramaStitcher::limitOutputSize(cv::Size(size.width, size.height));
    return {limit.width, limit.height};
}

// The stitcher returns only the covered part of a picture of `size`, but a crop counts from the corner of the whole:
// beside a ragged rim it would be scaled to the covered part and misplaced.
Panorama inWholeFrame(Panorama drawn, const _Size<int>& size)
{
    const cv::Rect roi = drawn.roi;
    if (drawn.image->size() == size)
        return drawn;
    Panorama frame{std::make_shared<_ImageData<PixelRGB<float>>>(size, PixelRGB<float>{1.0f, 1.0f, 1.0f},
                                                                 drawn.image->colorProfile()),
                   std::make_shared<MaskImage>(size, 0.0f), cv::Rect()};
    forEachRow(drawn.image->height(), [&](int y) {
        std::copy_n(drawn.image->row(y), drawn.image->width(), frame.image->row(roi.y + y) + roi.x);
        std::copy_n(drawn.mask->row(y), drawn.mask->width(), frame.mask->row(roi.y + y) + roi.x);
    });
    return frame;
}

} // namespace

void PanoramaPreviewComposerPrivate::keepException(const char* task)
{
    try {
        throw;
    } catch (const std::exception& error) {
        LOG(__orvolog() << LogMessageType::Warning << task << ": " << error.what());
    } catch (...) {
        LOG(__orvolog() << LogMessageType::Warning << task << ".");
    }
    if (lastFailure()) // of the work itself, while this exception may be the receiver's
        return;
    const details::CallScope scope;
    details::stateFailure(details::failureOfOpenCv());
}

void PanoramaPreviewComposerPrivate::cropPreview(WarpType type, _Size<int> size,
                                                 const std::function<void(RenderedData, _Rect<int>)>& callback)
{
    answeringAnyway(
        "Exception in crop preview generation",
        [&] {
            const auto [data, proposal] = runInOpenCallFrame([&] {
                const RenderedData drawn = createFullPanorama(type, size, cachedRoi);
                return std::pair(drawn, drawn.mask ? inscribedRectOfMask(*drawn.mask) : _Rect<int>());
            });
            callback(data, proposal);
        },
        [&] {
            const RenderedData blank = blankPreview();
            callback(blank, {0, 0, blank.image->width(), blank.image->height()});
        });
}

bool PanoramaPreviewComposerPrivate::isStale(WarpType type, const _Rect<int>& roi, const std::string& text) const
{
    if (!cachedPreview.image)
        return false;
    // The same numbers name another part in another projection.
    const bool isOfOther = cachedRoi != _Rect<int>() && cachedProjection != type;
    if (cachedRoi == roi && !isOfOther)
        return false;
    LOG(__orvolog() << LogMessageType::Warning << text);
    details::stateFailure({FailureKind::Internal, {}, "the crop was made for another view of the panorama"});
    return true;
}

void PanoramaPreviewComposerPrivate::finalizePreview(WarpType type, const PanoramaPreviewComposer::CropInfo& info,
                                                     _Size<int> size, const std::function<void(RenderedData)>& callback,
                                                     const std::string& signature)
{
    answeringAnyway(
        "Exception in final preview generation",
        [&] { callback(runInOpenCallFrame([&] { return finalPreview(type, info, size, signature); })); },
        [&] { callback(blankPreview()); });
}

RenderedData PanoramaPreviewComposerPrivate::finalPreview(WarpType type, const PanoramaPreviewComposer::CropInfo& info,
                                                          _Size<int> size, const std::string& signature)
{
    if (isStale(type, info.context.roi,
                signature + ": PanoramaPreviewComposer::getFinalizePreview: roi is incorrect, trying to generate image "
                            "for another settings")) {
        for (const _Size<int>& requested : {size, info.context.size})
            if (requested != _Size<int>())
                return placeholderPreview(requested);
        return placeholderPreview(cachedPreview.context.size);
    }
    const bool isKept = cachedPreview.image && cachedProjection == type;
    const bool isToBeDrawn = size != _Size<int>() || !isKept;
    // Gray rather than a part of an older picture, for which the crop was not made.
    if (isToBeDrawn && createFullPanorama(type, size, info.context.roi).isPlaceholder)
        return blankPreview();
    const CropDescription crop = processCropInfo(info.crop, info.context.size, cachedPreview.image->size());
    return applyCrop(cachedPreview.image, cachedPreview.mask, crop);
}

RenderedData PanoramaPreviewComposerPrivate::finishedWhole(const _Rect<int>& roi)
{
    const Panorama drawn = stitcher->makePanorama(roi, roi.size(), stitcherCancel(), limited(roi.size()));
    if (!drawn.image) {
        stateNothingDrawn();
        return blankPreview();
    }
    blendAlpha(drawn);
    RenderedData data;
    data.image = drawn.image;
    data.mask = drawn.mask;
    data.context = {roi.size(), roi};
    data.colorProfile = drawn.image->colorProfile();
    return data;
}

RenderedData PanoramaPreviewComposerPrivate::finishedCrop(const PanoramaPreviewComposer::CropInfo& info)
{
    const _Rect<int>& roi = info.context.roi;
    const CropDescription onRoi = processCropInfo(info.crop, info.context.size, roi.size());
    const cv::Rect box = boundsOfCrop(onRoi, roi.size());
    const _Size<int> size(box.width, box.height);
    Panorama drawn = stitcher->makePanorama({roi.x + box.x, roi.y + box.y, box.width, box.height}, size,
                                            stitcherCancel(), limited(size));
    if (!drawn.image) {
        stateNothingDrawn();
        return blankPreview();
    }
    // A reprojection draws at full size, whatever the limit.
    drawn = inWholeFrame(std::move(drawn), stitcher->reprojectionNeeded() ? size : limited(size));
    blendAlpha(drawn);
    CropDescription onBox;
    onBox.angle = onRoi.angle;
    onBox.rect = onRoi.rect;
    onBox.rect.x -= box.x;
    onBox.rect.y -= box.y;
    return applyCrop(drawn.image, drawn.mask, processCropInfo(onBox, size, drawn.image->size()));
}

RenderedData PanoramaPreviewComposerPrivate::finished(WarpType type, const PanoramaPreviewComposer::CropInfo& info,
                                                      const std::string& signature)
{
    if (isStale(type, info.context.roi,
                signature + ": PanoramaPreviewComposer::finalize: roi is incorrect, trying to generate image for "
                            "another settings"))
        return placeholderPreview(info.context.size);
    enterProjection(type);
    return info.crop == CropDescription() ? finishedWhole(info.context.roi) : finishedCrop(info);
}

void PanoramaPreviewComposerPrivate::finish(WarpType type, const PanoramaPreviewComposer::CropInfo& info,
                                            const std::function<void(RenderedData)>& callback,
                                            const std::string& signature)
{
    answeringAnyway(
        "Exception in finalize", [&] { callback(runInOpenCallFrame([&] { return finished(type, info, signature); })); },
        [&] { callback(blankPreview()); });
}

} // namespace orvo
