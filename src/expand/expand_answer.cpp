#include "expand/expand_answer.hpp"

#include "expand/tie_answer.hpp"

#include <orvo/answers.hpp>

#include <algorithm>
#include <cstdint>
#include <stdexcept>

namespace orvo {
namespace {

using Picture = _ImageData<PixelRGB<float>>;

// The limit of an answer's sides relative to the area it fills. Larger ones add no detail, but the canvas is scaled to
// them.
constexpr std::int64_t kMostOversampled = 2;

/// One side of an answer before it is enlarged. The ratio corrects for a service that answers at a scale different from
/// the request's; `sent` is 0 if the application does not know the size it sent.
int answerSide(int downsampled, int generated, int sent, int rect)
{
    const std::int64_t side = sent > 0 ? std::int64_t{downsampled} * generated / sent : downsampled;
    // A larger side adds no detail, and a nonsensical `sent` could make it arbitrarily large.
    return static_cast<int>(std::clamp<std::int64_t>(side, 1, std::max(generated, rect)));
}

} // namespace

std::shared_ptr<Picture> expandedPicture(const GenerativeProcessorBaseImpl::RequestParameters& parameters,
                                         std::shared_ptr<Picture> generated, _Size<int> size)
{
    const _Rect<int>& rect = parameters.rect;
    if (!parameters.canvas || !parameters.mask || rect.width < 1 || rect.height < 1)
        throw std::runtime_error("there is no request that the answer could belong to");
    const _Size<int> target{
        answerSide(parameters.downsampledSize.width, generated->width(), size.width, rect.width),
        answerSide(parameters.downsampledSize.height, generated->height(), size.height, rect.height)};
    if (generated->width() > kMostOversampled * rect.width || generated->height() > kMostOversampled * rect.height)
        generated = generated->resize(rect.size(), {}, true);
    // The membrane compares samples, so both need the same profile.
    generated->convertTo(parameters.canvas->colorProfile());
    tieAnswer(*generated, parameters);

    AnswerPicture result = generated->resize(target, {}, true);
    upscaleToInitialSize(result, rect.size(), parameters.mask);
    applyDetailsToResult(result);
    auto picture = parameters.canvas->copy({});
    if (result->size() == parameters.mask->size())
        blendRoi(picture, result, parameters.mask, rect);
    return picture;
}

} // namespace orvo
