#include "expand/expand_answer.hpp"

#include "expand/tie_answer.hpp"

#include <orvo/answers.hpp>

#include <algorithm>
#include <cstdint>
#include <stdexcept>

namespace orvo {
namespace {

using Picture = _ImageData<PixelRGB<float>>;

// An answer of more than this many times the pixels that it is to fill shows nothing more, and the canvas is brought to
// its scale.
constexpr std::int64_t kMostOversampled = 2;

/// One side of an answer before it is enlarged. A service may answer at another scale than it was asked at; `sent` is 0
/// where the application does not know what it sent.
int answerSide(int downsampled, int generated, int sent, int rect)
{
    const std::int64_t side = sent > 0 ? std::int64_t{downsampled} * generated / sent : downsampled;
    // More than the answer or the place have would be enlarged for nothing, to any size if `sent` is nonsense.
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
    // Both have to speak of the same colours to be tied.
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
