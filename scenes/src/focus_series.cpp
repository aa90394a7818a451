#include "focus_scene.hpp"
#include "sensor.hpp"

#include <orvo_core/color_transform.hpp>
#include <orvo_core/parallel.hpp>
#include <scenes/focus_series.hpp>

#include <algorithm>
#include <cmath>
#include <stdexcept>
#include <string>

namespace orvo::scenes {

namespace {

constexpr int kSmallestSide = 16;
constexpr int kLargestSide = 65536;
constexpr int kMostFrames = 1000;
constexpr double kMostBreathing = 0.2;
// The discs of all radii are stored; wider ones would take long and show nothing new.
constexpr double kWidestBlur = 64.0;

template <typename T>
void checkRange(const char* field, T value, T least, T most)
{
    if (!(value >= least && value <= most))
        throw std::invalid_argument(std::string("FocusSeriesSettings.") + field + " is " + std::to_string(value) +
                                    ", allowed is " + std::to_string(least) + ".." + std::to_string(most));
}

const FocusSeriesSettings& checked(const FocusSeriesSettings& settings)
{
    checkRange("size.width", settings.size.width, kSmallestSide, kLargestSide);
    checkRange("size.height", settings.size.height, kSmallestSide, kLargestSide);
    checkRange("frames", settings.frames, 1, kMostFrames);
    checkRange("breathing", settings.breathing, -kMostBreathing, kMostBreathing);
    checkRange("texture", settings.texture, 0.0, 1.0);
    if (settings.reference)
        checkRange("reference", *settings.reference, 0, settings.frames - 1);
    if (!(settings.isoSpeed > 0.0))
        throw std::invalid_argument("FocusSeriesSettings.isoSpeed is " + std::to_string(settings.isoSpeed) +
                                    ", it must be above 0");
    for (const double focus : {settings.nearFocus, settings.farFocus})
        for (const double distance : {kNearestDistance, kFarthestDistance}) {
            const double blur = circleOfConfusion(settings.lens, focus, distance);
            if (!(blur <= kWidestBlur))
                throw std::invalid_argument("FocusSeriesSettings.lens: focused at " + std::to_string(focus) +
                                            " m it blurs over " + std::to_string(blur) + " pixels, allowed is 64");
        }
    return settings;
}

// Position of a frame in the series: 0 the first, 1 the last.
double progress(int index, int frames) { return frames == 1 ? 0.5 : index / (frames - 1.0); }

std::vector<Homography> geometryOf(const FocusSeriesSettings& settings, int reference)
{
    const FrameMotion& drift = settings.drift;
    const FrameMotion& shake = settings.shake;
    auto views = handShake(static_cast<std::size_t>(settings.frames), static_cast<std::size_t>(reference),
                           {.rotationDegrees = shake.rotationDegrees, .shiftX = shake.shiftX, .shiftY = shake.shiftY},
                           settings.shakeSeed);
    const double atReference = progress(reference, settings.frames);
    std::vector<Homography> maps;
    for (int i = 0; i < settings.frames; ++i) {
        CameraView& view = views[static_cast<std::size_t>(i)];
        view.shiftX += drift.shiftX * (i - reference);
        view.shiftY += drift.shiftY * (i - reference);
        view.rotationDegrees += drift.rotationDegrees * (i - reference);
        view.zoom = 1.0 + settings.breathing * (atReference - progress(i, settings.frames));
        maps.push_back(i == reference ? kIdentity : sceneFromFrame(view, settings.size));
    }
    return maps;
}

// How the reference sees the scene. Between the knots of its spline the texture has less contrast than on them, where
// all pixels of an upright reference would lie. Turned a little, each frame has pixels everywhere between the knots.
Homography sceneFromReferenceOf(const FocusSeriesSettings& settings)
{
    constexpr double kTurnDegrees = 0.5;
    return settings.texture > 0.0 ? sceneFromFrame({.rotationDegrees = kTurnDegrees}, settings.size) : kIdentity;
}

// Converts linear light with the primaries of sRGB to the working space, clamped to the range of a file.
void develop(Picture& picture, const NoiseSource& noise)
{
    const RowConverter toWorking(ColorProfileType::linearSRGB(), 3, ColorProfileType::melissaRGB());
    const auto developRow = [&](int y) {
        PixelRGB<float>* row = picture.row(y);
        float* samples = &row->r;
        const auto count = static_cast<std::uint64_t>(picture.width()) * 3;
        const std::uint64_t first = static_cast<std::uint64_t>(y) * count;
        if (!noise.silent())
            for (std::uint64_t i = 0; i < count; ++i)
                samples[i] = noise.noisy(samples[i], first + i);
        for (std::uint64_t i = 0; i < count; ++i)
            samples[i] = std::clamp(samples[i], 0.0f, 1.0f);
        toWorking.convert(samples, row, picture.width());
        for (std::uint64_t i = 0; i < count; ++i)
            samples[i] = std::clamp(samples[i], 0.0f, 1.0f);
    };
    forEachRow(picture.height(), developRow);
    picture.setColorProfile(ColorProfileType::melissaRGB());
}

} // namespace

FocusSeries::FocusSeries(const FocusSeriesSettings& settings)
    : recipe(checked(settings)), referenceIndex(settings.reference.value_or(settings.frames / 2)),
      geometry(geometryOf(settings, referenceIndex)), sceneFromReference(sceneFromReferenceOf(settings)),
      scene(std::make_shared<FocusScene>(settings.size, settings.seed, settings.texture))
{
    const double first = 1.0 / settings.nearFocus;
    const double last = 1.0 / settings.farFocus;
    for (int i = 0; i < settings.frames; ++i)
        focus.push_back(1.0 / (first + (last - first) * progress(i, settings.frames)));
}

void FocusSeries::checkIndex(int index) const
{
    if (index < 0 || index >= recipe.frames)
        throw std::out_of_range("FocusSeries: frame " + std::to_string(index) + " of " + std::to_string(recipe.frames));
}

double FocusSeries::focusDistance(int index) const
{
    checkIndex(index);
    return focus[static_cast<std::size_t>(index)];
}

Homography FocusSeries::referenceFromFrame(int index) const
{
    checkIndex(index);
    return geometry[static_cast<std::size_t>(index)];
}

std::shared_ptr<Picture> FocusSeries::frame(int index) const
{
    auto picture = scene->light(compose(sceneFromReference, referenceFromFrame(index)),
                                focusSetting(recipe.lens, focusDistance(index)));
    ExposureSettings exposure;
    exposure.isoSpeed = recipe.isoSpeed;
    // different from the frames of a series with the next seed
    const std::uint64_t seed = recipe.noiseSeed * 1009 + static_cast<std::uint64_t>(index);
    develop(*picture, NoiseSource(recipe.noise, exposure, seed));
    return picture;
}

std::vector<std::shared_ptr<Picture>> FocusSeries::frames() const
{
    std::vector<std::shared_ptr<Picture>> all;
    for (int i = 0; i < recipe.frames; ++i)
        all.push_back(frame(i));
    return all;
}

std::shared_ptr<Picture> FocusSeries::truth() const
{
    auto picture = scene->light(sceneFromReference, {});
    develop(*picture, NoiseSource(std::nullopt, {}, 0));
    return picture;
}

std::shared_ptr<_ImageData<float>> FocusSeries::depth() const
{
    auto map = scene->dioptres(sceneFromReference);
    forEachRange(map->pixelCount(), [&](std::size_t first, std::size_t last) {
        for (std::size_t i = first; i < last; ++i)
            map->data()[i] = 1.0f / map->data()[i];
    });
    return map;
}

std::shared_ptr<_ImageData<float>> FocusSeries::sharpestFrame() const
{
    auto map = scene->dioptres(sceneFromReference);
    std::vector<FocusSetting> settings;
    for (const double distance : focus)
        settings.push_back(focusSetting(recipe.lens, distance));
    forEachRange(map->pixelCount(), [&](std::size_t first, std::size_t last) {
        for (std::size_t i = first; i < last; ++i) {
            const auto blur = [&](const FocusSetting& setting) {
                return setting.perDioptre * std::abs(static_cast<double>(map->data()[i]) - setting.focus);
            };
            const auto sharpest = std::min_element(settings.begin(), settings.end(),
                                                   [&](const auto& a, const auto& b) { return blur(a) < blur(b); });
            map->data()[i] = static_cast<float>(sharpest - settings.begin());
        }
    });
    return map;
}

} // namespace orvo::scenes
