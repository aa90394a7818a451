// A custom effect in the document model: exposure, in the upper half of a picture, fading out downwards.
// edit_with_effect INPUT OUTPUT EV

#include <orvo_core/parallel.hpp>
#include <orvo_extensions/document.hpp>
#include <orvo_io/image_reader.hpp>
#include <orvo_io/image_writer.hpp>

#include <cmath>
#include <cstdio>
#include <exception>
#include <string>

namespace {

using Picture = orvo::_ImageData<orvo::PixelRGB<float>>;

constexpr const char* kEffectID = "ExampleExposureEffect";
constexpr const char* kExposure = "exposure"; // EV
constexpr const char* kSky = "sky";           // where it applies

class ExposureEffect : public orvo::Effect
{
public:
    ExposureEffect() : Effect({kEffectID, orvo::Parameters({{kExposure, 0.0f}})}) {}

    bool processImage(orvo::EffectCallContext& call) override
    {
        if (!call.source || call.canceled())
            return false;
        if (!call.result)
            call.result = std::make_shared<Picture>(call.source->size(), call.source->colorProfile());
        const auto layer = maskLayer(kSky);
        const float gain = std::exp2(parameters().value(kExposure, 0.0f));
        orvo::forEachRow(call.source->height(), [&](int y) {
            const orvo::PixelRGB<float>* const from = call.source->row(y);
            const float* const mask = layer && layer->mask ? layer->mask->row(y) : nullptr;
            orvo::PixelRGB<float>* const to = call.result->row(y);
            for (int x = 0; x < call.source->width(); ++x) {
                const float factor = 1.0f + (gain - 1.0f) * (mask != nullptr ? mask[x] : 1.0f);
                to[x] = {brightened(from[x].r, factor), brightened(from[x].g, factor), brightened(from[x].b, factor)};
            }
        });
        return !call.canceled();
    }
    std::shared_ptr<Effect> clone() const override { return std::make_shared<ExposureEffect>(*this); }
    bool isNeedProcessing() const override { return parameters().value(kExposure, 0.0f) != 0.0f; }

protected:
    const std::vector<std::string> amountParameters() const override { return {kExposure}; }

private:
    // Light doubles by one EV; samples are encoded with the curve of sRGB.
    static float brightened(float sample, float factor)
    {
        return orvo::srgbCurveFromLinear(factor * orvo::linearFromSRGBCurve(sample));
    }
};

std::shared_ptr<const orvo::MaskImage> skyMask(orvo::_Size<int> size)
{
    const auto mask = std::make_shared<orvo::MaskImage>(size);
    for (int y = 0; y < size.height; ++y)
        for (int x = 0; x < size.width; ++x)
            mask->row(y)[x] = std::fmax(0.0f, 1.0f - 2.0f * static_cast<float>(y) / static_cast<float>(size.height));
    return mask;
}

// A layer with one edit, and the effect configured by the edit.
orvo::AdjustmentLayer layerOf(float ev, orvo::_Size<int> size)
{
    orvo::Edit edit(orvo::ToolDescription({kEffectID}, "EXPOSURE"), orvo::UUIDGenerator()(), false, nullptr, false, 0,
                    0, false);
    edit.setName(L"Exposure of the sky");
    edit.setEffectParameters(kEffectID, orvo::Parameters({{kExposure, ev}}));
    edit.setEffectMask(kEffectID, {kSky, "sky.msk"});
    edit.setEffectMaskFlag(false); // "no effect mask" is false

    const auto effect = std::make_shared<ExposureEffect>();
    effect->setParameters(edit.getEffects().parameters.at(kEffectID).list());
    const auto mask = effect->makeMaskLayerForIdentifier(edit.getEffects().masks.at(kEffectID).identifier);
    mask->mask = skyMask(size);
    effect->setMaskLayerForIdentifier(mask->identifier, mask);

    orvo::AdjustmentLayer layer(0);
    layer.edits().append(edit);
    layer.addEffect(effect);
    return layer;
}

std::shared_ptr<const Picture> applied(const orvo::AdjustmentLayer& layer, std::shared_ptr<orvo::Image> image)
{
    const auto unedited = image->developedOriginalImageData({});
    std::shared_ptr<const Picture> current = unedited;
    for (const auto& effect : layer.getEffects()) {
        if (!effect->isNeedProcessing())
            continue;
        orvo::EffectCallContext call(current, {}, unedited, {}, image, {}, nullptr, nullptr, effect.get(), {}, {});
        if (!effect->processImage(call))
            return {};
        current = call.result;
    }
    return current;
}

} // namespace

int main(int argc, char** argv)
try {
    if (argc != 4) {
        std::fputs("usage: edit_with_effect INPUT OUTPUT EV\n", stderr);
        return 2;
    }
    const auto image =
        orvo::ImageReader::instance().open({argv[1], {}}, {}, orvo::ImageReaderOpenFlag::Bracket, nullptr, {}, -1);
    if (!image) {
        std::fprintf(stderr, "%s cannot be read\n", argv[1]);
        return 1;
    }
    const auto result = applied(layerOf(std::stof(argv[3]), image->size()), image);
    if (!result)
        return 1;
    orvo::ImageWriteSettings file = orvo::writeSettingsForPath(argv[2]);
    file.metadata = image->metadata();
    orvo::writeImage(argv[2], *result, file);
    return 0;
} catch (const std::exception& error) {
    std::fprintf(stderr, "%s\n", error.what());
    return 1;
}
