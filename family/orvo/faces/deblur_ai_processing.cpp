// The sharpening of faces as an effect of a document; deblur_ai_effect.cpp does the work.

#include <orvo/deblur_ai_effect.hpp>
#include <orvo_common/uuid.hpp>
#include <orvo_core/parallel.hpp>
#include <orvo_extensions/effect_identifiers.hpp>
#include <orvo_logger/logstream.hpp>

#include <algorithm>

namespace orvo {
namespace {

using Picture = _ImageData<PixelRGB<float>>;

constexpr const char* kAmount = "amount";
constexpr const char* kProfiles = "profiles";
constexpr const char* kFeatures = "features";

EffectProperties deblurProperties()
{
    EffectProperties properties;
    properties.effectID = EffectIdentifiers::kDeblurAI;
    properties.defaults = Parameters({{kAmount, 1.0f}, {kProfiles, 1.0f}, {kFeatures, 1.0f}});
    return properties;
}

_Rect<int> partWithin(const _Rect<int>& rect, const Picture& picture)
{
    if (rect == _Rect<int>())
        return {0, 0, picture.width(), picture.height()};
    const int left = std::clamp(rect.x, 0, picture.width()), top = std::clamp(rect.y, 0, picture.height());
    const int right = std::clamp(rect.x + rect.width, left, picture.width());
    const int bottom = std::clamp(rect.y + rect.height, top, picture.height());
    return {left, top, right - left, bottom - top};
}

void mix(const Picture& source, const Picture& sharpened, const _Rect<int>& part, float opacity, Picture& result)
{
    forEachRow(result.height(), [&](int y) {
        const PixelRGB<float>* const from = source.row(y);
        const PixelRGB<float>* const sharp = sharpened.row(y);
        PixelRGB<float>* const to = result.row(y);
        std::copy(from, from + source.width(), to);
        if (y < part.y || y >= part.y + part.height)
            return;
        for (int x = part.x; x < part.x + part.width; ++x)
            to[x] = opacity >= 1.0f ? sharp[x]
                                    : PixelRGB<float>{from[x].r + opacity * (sharp[x].r - from[x].r),
                                                      from[x].g + opacity * (sharp[x].g - from[x].g),
                                                      from[x].b + opacity * (sharp[x].b - from[x].b)};
    });
}

} // namespace

DeblurAIEffect::DeblurAIEffect() : Effect(deblurProperties()) {}
DeblurAIEffect::~DeblurAIEffect() = default;
DeblurAIEffect::DeblurAIEffect(const DeblurAIEffect&) = default;

void DeblurAIEffect::clearCache() { Effect::clearCache(); }

std::shared_ptr<Effect> DeblurAIEffect::clone() const { return std::make_shared<DeblurAIEffect>(*this); }

bool DeblurAIEffect::isNeedProcessing() const { return parameters().value(kAmount, 0.0f) > 0.0f; }

const std::vector<std::string> DeblurAIEffect::amountParameters() const { return {kAmount}; }

bool DeblurAIEffect::processImage(EffectCallContext& call)
{
    if (!call.source || call.canceled())
        return false;
    if (call.result && call.result->size() != call.source->size()) {
        details::logErrorMessage(functionSignature() + ": a result of the size of the source is needed");
        return false;
    }
    const auto isOn = [&](const char* name) { return parameters().value(name, 1.0f) != 0.0f; };
    const std::shared_ptr<Picture> sharpened =
        deblurFaces(generateUUID(), call.source, parameters().value(kAmount, 1.0f), isOn(kProfiles), isOn(kFeatures),
                    call.cancelRun);
    if (!sharpened || call.canceled())
        return false;
    const float opacity = std::clamp(call.blend.opacity, 0.0f, 1.0f);
    if (!call.result)
        call.result = std::make_shared<Picture>(call.source->size(), call.source->colorProfile());
    mix(*call.source, *sharpened, partWithin(call.rect, *call.source), opacity, *call.result);
    if (call.processed)
        call.processed->push_back({getProperties().effectID, true});
    return true;
}

} // namespace orvo
