#include "expand/expand_request.hpp"

#include "GenProcessorBase/fit_to_limits.hpp"
#include "GenProcessorBase/rectangles.hpp"
#include "GenProcessorBase/tool_calls.hpp"
#include "expand/expand_canvas.hpp"

#include <orvo/answers.hpp>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <stdexcept>
#include <utility>

namespace orvo {
namespace {

using Picture = _ImageData<PixelRGB<float>>;

constexpr Base64EncodeParameters kEncoding(0, 8);
constexpr int kWidestBorder = 2000; // pixels that a service paints from one known side

/// Widths of the new border on each side; negative where the crop cuts into the picture.
struct Borders
{
    int top, left, bottom, right;
};

int scaledSide(int length, float scale) { return std::max(1, static_cast<int>(static_cast<float>(length) * scale)); }

/// Distances beyond the range of an int, of crops far from the picture, are limited to it.
int limited(std::int64_t distance)
{
    constexpr std::int64_t kMost = std::numeric_limits<int>::max();
    return static_cast<int>(std::clamp(distance, -kMost, kMost));
}

int scaledBorder(int width, float scale)
{
    return limited(static_cast<std::int64_t>(std::ceil(static_cast<float>(width) * scale)));
}

int atLeastSideOf(int longer, float aspect) { return static_cast<int>(std::ceil(static_cast<float>(longer) / aspect)); }

/// Keeps the known part of a request from being a sliver: grows its shorter side, and the request with it, as far as
/// the picture allows, and moves both back inside the picture's place `inner`.
void widenKnownPart(_Rect<int>& part, _Rect<int>& roi, const _Rect<int>& inner, _Size<int> picture, float aspect)
{
    const int formerWidth = part.width;
    if (aspect * static_cast<float>(part.height) < static_cast<float>(part.width)) {
        const int height = std::min(atLeastSideOf(part.width, aspect), picture.height);
        roi.height += height - part.height;
        part.height = height;
    }
    if (aspect * static_cast<float>(formerWidth) < static_cast<float>(part.height)) {
        const int width = std::min(atLeastSideOf(part.height, aspect), picture.width);
        roi.width += width - part.width;
        part.width = width;
    }
    if (part.x < inner.x || part.y < inner.y || part.x + part.width > inner.x + inner.width ||
        part.y + part.height > inner.y + inner.height) {
        const int y = std::max(0, std::min(part.y, inner.height - part.height + inner.y));
        const int x = std::max(0, std::min(part.x, inner.width - part.width + inner.x));
        roi.x += x - part.x;
        roi.y += y - part.y;
        part.x = x;
        part.y = y;
    }
}

/// The largest size of the known picture in a request.
_Size<int> allowedSize(std::shared_ptr<const Picture> known, const ExpandLimits& limits)
{
    const std::int64_t pixels = std::int64_t{known->width()} * known->height();
    if (pixels > limits.pixels) {
        const float scale = std::sqrt(static_cast<float>(limits.pixels) / static_cast<float>(pixels));
        known = known->resize({scaledSide(known->width(), scale), scaledSide(known->height(), scale)}, {}, true);
    }
    return fitToLimits<GenExpandData>(std::make_shared<const GenExpandData>(std::move(known), kEncoding),
                                      limits.base64Size, limits.aspect,
                                      [](const GenExpandData& d) { return d.imageBase64.size(); })
        ->image->size();
}

/// The part `roi` of both; what needs no cut is shared.
ExpandCanvas partOf(const ExpandCanvas& canvas, const _Rect<int>& roi)
{
    if (roi == _Rect<int>(0, 0, canvas.picture->width(), canvas.picture->height()))
        return canvas;
    return {canvas.picture->resize(roi.size(), roi, true), canvas.mask->resize(roi.size(), roi, true)};
}

/// The scale at which no border exceeds the width that a service paints; 1 if all are narrow enough.
float borderScale(const Borders& borders)
{
    float scale = 1.0f;
    for (const int width : {borders.top, borders.left, borders.bottom, borders.right})
        if (width > kWidestBorder)
            scale = std::min(scale, static_cast<float>(kWidestBorder) / static_cast<float>(width));
    return scale;
}

} // namespace

GenExpandData::GenExpandData(std::shared_ptr<const Picture> picture, const Base64EncodeParameters& encoding)
    : image(std::move(picture)), imageBase64(imageToBase64(image, encoding)), parameters(encoding)
{}

std::shared_ptr<const GenExpandData> GenExpandData::resized(_Size<int> size) const
{
    return std::make_shared<const GenExpandData>(image->resize(size, {}, true), parameters);
}

ExpandRequest prepareExpandRequest(GenerativeProcessorBaseImpl::WorkingImage& workingImage, const _Rect<int>& crop,
                                   const ExpandLimits& limits, const std::string& id, const std::string& where,
                                   GenerativeProcessorBaseImpl::RequestParameters& parameters)
{
    auto picture = workingImage.imageData(ResizeParameters{{}, {}, true});
    if (!picture)
        throw std::runtime_error("there is no picture to expand");
    const _Size<int> size = picture->size();
    const ExpandCanvas canvas = makeExpandCanvas(picture, crop);
    picture.reset(); // the canvas has its pixels
    const _Rect<int> whole(0, 0, crop.width, crop.height);
    _Rect<int> roi = adjustProcessingRect(calculateMaskRoi(canvas.mask), canvas.mask->size(), {0, 0});
    const _Rect<int> place(limited(-std::int64_t{crop.x}), limited(-std::int64_t{crop.y}), size.width, size.height);
    Borders borders = {place.y, place.x, limited(std::int64_t{crop.height} + crop.y - size.height),
                       limited(std::int64_t{crop.width} + crop.x - size.width)};

    const _Rect<int> inner = intersected(place, whole);
    if (inner != place)
        logToolError(where, "Improper rect");
    _Rect<int> part = intersected(roi, inner);
    widenKnownPart(part, roi, inner, size, limits.aspect);
    roi = intersected(roi, whole); // an answer has nothing to paint beyond the canvas

    // Encoded only to measure its text; an empty part measures the whole canvas.
    std::shared_ptr<const Picture> known = canvas.picture->copy(part);
    const _Size<int> knownSize = known->size();
    const _Size<int> allowed = allowedSize(std::move(known), limits);

    ExpandCanvas sent = partOf(canvas, roi);
    const auto blendMask = sent.mask;
    _Size<int> target = roi.size();
    if (allowed != knownSize) {
        const float scaleX = static_cast<float>(allowed.width) / static_cast<float>(knownSize.width);
        const float scaleY = static_cast<float>(allowed.height) / static_cast<float>(knownSize.height);
        target = {scaledSide(target.width, scaleX), scaledSide(target.height, scaleY)};
        sent = scaledTo(sent, target);
        borders = {scaledBorder(borders.top, scaleY), scaledBorder(borders.left, scaleX),
                   scaledBorder(borders.bottom, scaleY), scaledBorder(borders.right, scaleX)};
    }
    if (const float scale = borderScale(borders); scale < 1.0f) {
        target = {scaledSide(target.width, scale), scaledSide(target.height, scale)};
        sent = scaledTo(sent, target);
    }
    // Before encoding, since a request at full scale sends the mask that blends.
    prepareBlendMask(blendMask);
    ExpandRequest request;
    request.image = imageToBase64(sent.picture, kEncoding);
    request.mask = imageToBase64(std::shared_ptr<const _ImageData<float>>(sent.mask), kEncoding);
    request.width = target.width;

    parameters.mask = blendMask;
    parameters.downsampledSize = calculateDownsampledSize(target, roi.size());
    parameters.rect = roi;
    parameters.canvas = canvas.picture;
    parameters.sourceRect = place;
    parameters.id = id;
    return request;
}

} // namespace orvo
