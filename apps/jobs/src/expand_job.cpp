#include "checks.hpp"
#include "generative_run.hpp"

#include <jobs/expand_job.hpp>
#include <orvo_extensions/generative_expand.hpp>

#include <algorithm>
#include <cmath>
#include <memory>
#include <string>

namespace orvo::jobs {
namespace {

using Picture = _ImageData<PixelRGB<float>>;

// See expandJob().
constexpr double kLoadStarts = 0.02;
constexpr double kRequestStarts = 0.06;
constexpr double kAnswerStarts = 0.12;
constexpr double kApplyStarts = 0.85;
constexpr double kWriteStarts = 0.92;

std::string text(const _Rect<int>& rect)
{
    return std::to_string(rect.width) + " x " + std::to_string(rect.height) + " pixels at " + std::to_string(rect.x) +
           ", " + std::to_string(rect.y);
}

void checkRequest(const ExpandJobRequest& request)
{
    if (request.crop.has_value() == request.add.has_value())
        throw JobRefusal("either a crop or widths to add are needed");
    if (request.crop && (request.crop->width < 1 || request.crop->height < 1))
        throw JobRefusal("the crop has " + text(*request.crop) + ", each side needs at least 1");
    if (!request.add)
        return;
    for (const BorderWidth& width : {request.add->left, request.add->top, request.add->right, request.add->bottom})
        if (!(width.value >= 0.0) || !std::isfinite(width.value))
            throw JobRefusal("a width to add is " + std::to_string(width.value) + ", expected 0 or more");
}

std::int64_t pixelsOf(const BorderWidth& width, int side)
{
    constexpr double kPercent = 100.0;
    constexpr double kFarthest = 1e9; // sums of two stay within an int
    return std::llround(std::min(kFarthest, width.isPercent ? width.value * side / kPercent : width.value));
}

_Rect<int> checkedCanvas(const ExpandJobRequest& request, _Size<int> size)
{
    const auto unfitting = [&](const std::string& sentence) {
        return FailureError({FailureKind::UnfittingPictures, request.source, sentence});
    };
    const _Rect<std::int64_t> wide = expandedCanvas(request, size);
    if (static_cast<double>(wide.width) * static_cast<double>(wide.height) > static_cast<double>(kMostCanvasPixels))
        throw unfitting("the new canvas has " + std::to_string(wide.width) + " x " + std::to_string(wide.height) +
                        " pixels, at most " + std::to_string(kMostCanvasPixels / 1'000'000) + " million are possible");
    const _Rect<int> canvas(static_cast<int>(wide.x), static_cast<int>(wide.y), static_cast<int>(wide.width),
                            static_cast<int>(wide.height));
    if (wide.x >= size.width || wide.y >= size.height || wide.x + wide.width <= 0 || wide.y + wide.height <= 0)
        throw unfitting("the crop of " + text(canvas) + " shows nothing of the picture, which has " +
                        std::to_string(size.width) + " x " + std::to_string(size.height));
    if (wide.x >= 0 && wide.y >= 0 && wide.x + wide.width <= size.width && wide.y + wide.height <= size.height)
        throw unfitting("nothing is to be painted: the canvas of " + text(canvas) + " lies within the picture of " +
                        std::to_string(size.width) + " x " + std::to_string(size.height));
    return canvas;
}

GenerativeProcessorBase::RequestInput requestOf(PictureRun& run, GenerativeExpandProcessor& expand,
                                                const ExpandJobRequest& request, const _Rect<int>& canvas)
{
    run.report({JobStep::Request, kRequestStarts, /*opaque=*/true});
    CropDescription crop;
    crop.rect = canvas;
    auto input = answerOf<GenerativeProcessorBase::RequestInput>(
        [&](auto callback) { expand.generateRequest("expand", crop, {}, std::move(callback)); });
    if (!input.valid)
        throw FailureError({FailureKind::Internal, request.source, "no request could be prepared"});
    return input;
}

std::shared_ptr<const Picture> applied(PictureRun& run, GenerativeExpandProcessor& expand, const ServiceAnswer& answer,
                                       const ExpandJobRequest& request, const _Rect<int>& canvas)
{
    run.report({JobStep::Apply, kApplyStarts, /*opaque=*/true});
    expand.applyGeneratedResponse(asDataUrl(answer.picture), answer.sent);
    const auto rendered =
        answerOf<RenderedData>([&](auto callback) { expand.generateDataForExport(std::move(callback)); });
    // The processor reports a failure of its work on the picture to the log alone; then the picture has not grown.
    if (!rendered.image || rendered.image->size() != canvas.size())
        throw FailureError({FailureKind::Internal, request.source, "the answer could not be put into the picture"});
    return rendered.image;
}

void expandPicture(PictureRun& run, const ExpandJobRequest& request, ExpandJobResult& result)
{
    checkRequest(request);
    GenerativeRun generative(run, request, result);
    const _Rect<int> canvas = checkedCanvas(request, generative.check({}));
    generative.checkHolds(canvas.size());
    run.report({JobStep::Load, kLoadStarts});
    const auto source = generative.open();
    run.throwIfCancelled();
    GenerativeExpandProcessor expand(source->developedOriginalImageData({}));
    auto input = requestOf(run, expand, request, canvas);
    run.throwIfCancelled();
    const auto answer = generative.exchange(service::Tool::Expand, std::move(input.image), std::move(input.mask),
                                            kAnswerStarts, kApplyStarts);
    if (!answer)
        return;
    const auto expanded = applied(run, expand, *answer, request, canvas);
    run.report({JobStep::Write, kWriteStarts});
    generative.write(expanded, source->metadata());
}

} // namespace

_Rect<std::int64_t> expandedCanvas(const ExpandJobRequest& request, _Size<int> size)
{
    if (request.crop)
        return {request.crop->x, request.crop->y, request.crop->width, request.crop->height};
    const std::int64_t left = pixelsOf(request.add->left, size.width);
    const std::int64_t top = pixelsOf(request.add->top, size.height);
    return {-left, -top, left + size.width + pixelsOf(request.add->right, size.width),
            top + size.height + pixelsOf(request.add->bottom, size.height)};
}

ExpandJobResult expandJob(const ExpandJobRequest& request, const JobCallbacks& callbacks)
{
    ExpandJobResult result;
    result.output = request.output;
    result.source = request.source;
    runPictureJob(request, callbacks, result, [&](PictureRun& run) { expandPicture(run, request, result); });
    return result;
}

} // namespace orvo::jobs
