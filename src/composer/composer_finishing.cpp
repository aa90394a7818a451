// Crop preview, final preview and the finished picture of a composer, on its worker.
#include "composer/composer_private.hpp"
#include "composer/crop_fitting.hpp"
#include "frame/call_frame.hpp"

#include <orvo_core/parallel.hpp>
#include <orvo_logger/logstream.hpp>

#include <algorithm>
#include <cmath>
#include <exception>
#include <numbers>

namespace orvo {
namespace {

// Runs `body`. If it throws, logs the failure and runs `answer` instead.
template <typename Body, typename Answer>
void answeringAnyway(const char* what, const Body& body, const Answer& answer)
{
    try {
        body();
        return;
    } catch (const std::exception& error) {
        LOG(__orvolog() << LogMessageType::Warning << "Exception in " << what << ": " << error.what());
    } catch (...) {
        LOG(__orvolog() << LogMessageType::Warning << "Exception in " << what << ".");
    }
    answer();
}

_Size<int> limited(const _Size<int>& size)
{
    const cv::Size limit = PanoramaStitcher::limitOutputSize(cv::Size(size.width, size.height));
    return {limit.width, limit.height};
}

// The part of a canvas that a crop needs: the bounds of its turned rectangle.
cv::Rect boxOf(const CropDescription& crop, const _Size<int>& canvas)
{
    const _Rect<int> rect = crop.getCropRect();
    cv::Rect box(rect.x, rect.y, rect.width, rect.height);
    if (crop.angle != 0.0f) {
        constexpr float kDegrees = 180.0f / std::numbers::pi_v<float>;
        const cv::Point2f centre(static_cast<float>(rect.x) + static_cast<float>(rect.width) / 2.0f,
                                 static_cast<float>(rect.y) + static_cast<float>(rect.height) / 2.0f);
        box = cv::RotatedRect(centre, cv::Size2f(static_cast<float>(rect.width), static_cast<float>(rect.height)),
                              crop.angle * kDegrees)
                  .boundingRect();
    }
    return box & cv::Rect(0, 0, canvas.width, canvas.height);
}

// The stitcher returns only the covered part of a box, but a crop counts from the corner of the box.
Panorama inWholeFrame(Panorama drawn, const _Size<int>& box, const _Size<int>& limit)
{
    const cv::Rect roi = drawn.roi;
    const bool fitsLimit = roi.x + roi.width <= limit.width && roi.y + roi.height <= limit.height;
    const _Size<int> size = fitsLimit ? limit : box;
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

void PanoramaPreviewComposerPrivate::cropPreview(WarpType type, _Size<int> size,
                                                 const std::function<void(RenderedData, _Rect<int>)>& callback)
{
    answeringAnyway(
        "crop preview generation",
        [&] {
            const RenderedData data = createFullPanorama(type, size, cachedRoi);
            callback(data, data.mask ? inscribedRectOfMask(*data.mask) : _Rect<int>());
        },
        [&] {
            const RenderedData blank = blankPreview();
            callback(blank, {0, 0, blank.image->width(), blank.image->height()});
        });
}

bool PanoramaPreviewComposerPrivate::isStale(const _Rect<int>& roi, const std::string& signature,
                                             const char* method) const
{
    if (!cachedPreview.image || cachedRoi == roi)
        return false;
    LOG(__orvolog() << LogMessageType::Warning << signature << ": PanoramaPreviewComposer::" << method
                    << ": roi is incorrect, trying to generate image for another settings");
    return true;
}

void PanoramaPreviewComposerPrivate::finalizePreview(WarpType type, const PanoramaPreviewComposer::CropInfo& info,
                                                     _Size<int> size, const std::function<void(RenderedData)>& callback,
                                                     const std::string& signature)
{
    answeringAnyway(
        "final preview generation",
        [&] {
            if (isStale(info.context.roi, signature, "getFinalizePreview")) {
                _Size<int> grayOf = size;
                if (grayOf == _Size<int>())
                    grayOf = info.context.size;
                if (grayOf == _Size<int>())
                    grayOf = cachedPreview.context.size;
                callback(placeholderPreview(grayOf));
                return;
            }
            const bool isToBeDrawn = size != _Size<int>() || !cachedPreview.image;
            if (isToBeDrawn && createFullPanorama(type, size, info.context.roi).isPlaceholder) {
                callback(blankPreview());
                return;
            }
            const CropDescription crop = processCropInfo(info.crop, info.context.size, cachedPreview.image->size());
            callback(applyCrop(cachedPreview.image, cachedPreview.mask, crop));
        },
        [&] { callback(blankPreview()); });
}

RenderedData PanoramaPreviewComposerPrivate::finishedWhole(const _Rect<int>& roi)
{
    const Panorama drawn = stitcher->makePanorama(roi, roi.size(), stitcherCancel(), limited(roi.size()));
    if (!drawn.image)
        return blankPreview();
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
    const cv::Rect box = boxOf(onRoi, roi.size());
    const _Size<int> size(box.width, box.height);
    Panorama drawn = stitcher->makePanorama({roi.x + box.x, roi.y + box.y, box.width, box.height}, size,
                                            stitcherCancel(), limited(size));
    if (!drawn.image)
        return blankPreview();
    drawn = inWholeFrame(std::move(drawn), size, limited(size));
    blendAlpha(drawn);
    CropDescription onBox;
    onBox.angle = onRoi.angle;
    onBox.rect = onRoi.rect;
    onBox.rect.x -= box.x;
    onBox.rect.y -= box.y;
    return applyCrop(drawn.image, drawn.mask, processCropInfo(onBox, size, drawn.image->size()));
}

void PanoramaPreviewComposerPrivate::finish(WarpType type, const PanoramaPreviewComposer::CropInfo& info,
                                            const std::function<void(RenderedData)>& callback,
                                            const std::string& signature)
{
    answeringAnyway(
        "finalize",
        [&] {
            if (isStale(info.context.roi, signature, "finalize")) {
                callback(placeholderPreview(info.context.size));
                return;
            }
            enterProjection(type);
            callback(runInOpenCallFrame(
                [&] { return info.crop == CropDescription() ? finishedWhole(info.context.roi) : finishedCrop(info); }));
        },
        [&] { callback(blankPreview()); });
}

} // namespace orvo
