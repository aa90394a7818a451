#include <orvo/composer.hpp>
#include <orvo_common/wide_path.hpp>
#include <orvo_core/display.hpp>
#include <orvo_core/identifier.hpp>
#include <orvo_image_processing/exposure_curve.hpp>
#include <orvo_image_processing/image_transform.hpp>

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cmath>
#include <stdexcept>
#include <utility>

namespace orvo {
namespace {

using nlohmann::json;

constexpr float kMostExposure = 10.0f; // EV: beyond the range of any picture
constexpr int kLargestSide = 100'000;  // pixels of a crop
constexpr std::size_t kDeepest = 16;   // nesting of a saved composition; it has three levels

// The content of a saved composition.
struct Saved
{
    CropDescription crop;
    float exposure = 0.0f;
};

[[noreturn]] void refuse(const std::string& text) { throw std::runtime_error("The composition " + text); }

float number(const json& value, const char* name)
{
    if (!value.is_number() || !std::isfinite(value.get<double>()) || std::abs(value.get<double>()) > 1e9)
        refuse(std::string("has no usable number in \"") + name + "\"");
    return static_cast<float>(value.get<double>());
}

_Rect<int> rectangle(const json& value)
{
    if (!value.is_array() || value.size() != 4)
        refuse("has no four numbers in \"rect\"");
    int numbers[4] = {};
    for (std::size_t i = 0; i < 4; ++i) {
        const auto side = static_cast<double>(number(value[i], "rect"));
        if (std::abs(side) > kLargestSide)
            refuse("has a \"rect\" beyond " + std::to_string(kLargestSide) + " pixels");
        numbers[i] = static_cast<int>(side);
    }
    if (numbers[2] < 0 || numbers[3] < 0)
        refuse("has a \"rect\" of negative size");
    return {numbers[0], numbers[1], numbers[2], numbers[3]};
}

const json& object(const json& value, const char* name)
{
    if (!value.is_object())
        refuse(std::string("has no object in \"") + name + "\"");
    return value;
}

CropDescription cropOf(const json& value)
{
    CropDescription crop;
    for (const auto& [key, member] : object(value, "crop").items()) {
        if (key == "angle") {
            crop.angle = number(member, "angle");
        } else if (key == "rect") {
            crop.rect = rectangle(member);
        } else if (key == "scale") {
            if (!member.is_array() || member.size() != 2)
                refuse("has no two numbers in \"scale\"");
            crop.scaleX = number(member[0], "scale");
            crop.scaleY = number(member[1], "scale");
        } else {
            refuse("has an unknown member \"" + key + "\" in \"crop\"");
        }
    }
    const _Rect<int> rect = crop.getCropRect();
    if (crop != CropDescription() && (rect.width < 1 || rect.height < 1))
        refuse("has a crop without pixels");
    return crop;
}

json parsed(const std::string& text)
{
    bool tooDeep = false;
    const json::parser_callback_t limit = [&](int depth, json::parse_event_t, json&) {
        tooDeep = tooDeep || static_cast<std::size_t>(depth) > kDeepest;
        return !tooDeep;
    };
    json value = json::parse(text, limit, false);
    if (value.is_discarded() || tooDeep)
        refuse("is no JSON text");
    return value;
}

Saved savedFrom(const std::string& text)
{
    Saved saved;
    const json whole = parsed(text);
    for (const auto& [key, member] : object(whole, "").items()) {
        if (key == "crop") {
            saved.crop = cropOf(member);
        } else if (key == "settings") {
            for (const auto& [name, value] : object(member, "settings").items()) {
                if (name != "exposure")
                    refuse("has an unknown setting \"" + name + "\"");
                saved.exposure = std::clamp(number(value, "exposure"), -kMostExposure, kMostExposure);
            }
        } else {
            refuse("has an unknown member \"" + key + "\"");
        }
    }
    return saved;
}

std::shared_ptr<Image> pictureOf(const std::vector<unsigned char>& bytes)
{
    const auto provider = ImageLoader::get(Identifier::deserialize(bytes));
    auto picture = provider ? provider->image() : nullptr;
    if (!picture)
        throw std::runtime_error("Composer: " + (provider ? pathText(provider->filePath()) + " cannot be read"
                                                          : std::string("the bytes name no document")));
    return picture;
}

bool canceled(const std::shared_ptr<std::atomic<bool>>& cancel) { return cancel && cancel->load(); }

} // namespace

Composer::Composer(const _Size<int>& canvas_) : canvas(canvas_)
{
    if (canvas.width < 1 || canvas.height < 1)
        throw std::invalid_argument("Composer: a canvas needs pixels");
}

std::vector<unsigned char> Composer::createLayer(const std::vector<unsigned char>& bytes, const BlendParameters&,
                                                 const ComposerScaleMode&)
{
    picture = pictureOf(bytes);
    std::vector<unsigned char> layer;
    UUIDGenerator()()->serialize(layer);
    return layer;
}

void Composer::load(const std::vector<unsigned char>& bytes, const StateSettings& state)
{
    const Saved saved = savedFrom(state.composition);
    picture = pictureOf(bytes);
    crop = saved.crop;
    exposure = saved.exposure;
}

std::string Composer::save() const
{
    json whole = json::object();
    if (crop != CropDescription())
        whole["crop"] = {{"angle", crop.angle},
                         {"rect", {crop.rect.x, crop.rect.y, crop.rect.width, crop.rect.height}},
                         {"scale", {crop.scaleX, crop.scaleY}}};
    if (exposure != 0.0f)
        whole["settings"] = {{"exposure", exposure}};
    return whole.dump();
}

void Composer::setExposure(float ev)
{
    exposure = std::isnan(ev) ? 0.0f : std::clamp(ev, -kMostExposure, kMostExposure);
}

void Composer::generateDataForExport(const _Size<int>& size, const std::function<void(RenderedData)>& done, bool,
                                     const std::function<void(RenderedData)>&,
                                     const std::shared_ptr<std::atomic<bool>>& cancel) const
{
    RenderedData data;
    data.isPlaceholder = true;
    if (picture && !canceled(cancel)) {
        const _Rect<int> rect = crop.getCropRect();
        const bool cropped = crop != CropDescription() && rect.width > 0 && rect.height > 0;
        const _Size<int> own = cropped ? rect.size() : canvas;
        const _Size<int> target = size == _Size<int>() ? own : size;
        std::shared_ptr<_ImageData<PixelRGB<float>>> rendered;
        if (cropped) {
            const auto whole = picture->developedModifiedImageData({canvas, {}, true});
            const TransformComputer computer(ImageTransformSettings(own, {}, target, ImageTransformType::Affine,
                                                                    crop.getAffineTransformForCanvas(own), crop, 0));
            rendered = computer.createTransformedRoi(*whole, computer.getWorkingResizeParameters());
        } else {
            rendered = picture->developedModifiedImageData({target, {}, true})->copy({});
        }
        rendered = prepareToDisplay(rendered, ColorProfileType::melissaRGB());
        if (exposure != 0.0f) {
            // Ends of the roll-off as in development: it starts at 0.9 of white.
            constexpr float kRollOff = 0.9f;
            constexpr float kPivot = 0.5f;
            ExposureCurve(1.0f + exposure / 10.0f, kRollOff, kPivot)
                .applyToPixels(rendered->data(), rendered->pixelCount());
        }
        if (!canceled(cancel)) {
            data.context = {rendered->size(), {0, 0, rendered->width(), rendered->height()}};
            data.image = std::move(rendered);
            data.isPlaceholder = false;
        }
    }
    if (done)
        done(std::move(data));
}

std::shared_ptr<const ImageMetadata> Composer::metadata() const { return picture ? picture->metadata() : nullptr; }

} // namespace orvo
