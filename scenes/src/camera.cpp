#include "paint.hpp"
#include "sensor.hpp"

#include <orvo_core/parallel.hpp>

#include <array>
#include <cmath>
#include <numbers>
#include <stdexcept>
#include <string>

namespace orvo::scenes {

namespace {

constexpr float kFilmicStrength = 0.55f; // share of the S over sRGB; below 1 the curve increases everywhere

// Bit mixer of the SplitMix64 generator (Steele, Lea, Flood, OOPSLA 2014).
constexpr std::uint64_t mixed(std::uint64_t z)
{
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9u;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBu;
    return z ^ (z >> 31);
}

constexpr std::uint64_t kGolden = 0x9E3779B97F4A7C15u; // odd, its multiples fill 64 bits evenly

constexpr std::uint32_t sumOfFourParts(std::uint64_t bits)
{
    return static_cast<std::uint32_t>(bits & 0xffffu) + static_cast<std::uint32_t>((bits >> 16) & 0xffffu) +
           static_cast<std::uint32_t>((bits >> 32) & 0xffffu) + static_cast<std::uint32_t>(bits >> 48);
}

// Mean 0, standard deviation 1.
float normalNumber(std::uint64_t counter)
{
    constexpr float kMean = 8.0f * 65535.0f / 2.0f;
    constexpr float kInverseDeviation = 1.0f / 53509.87f; // sqrt(8 * (65536^2 - 1) / 12)
    const std::uint64_t bits = mixed(counter);
    const std::uint32_t sum = sumOfFourParts(bits) + sumOfFourParts(mixed(bits + kGolden));
    return (static_cast<float>(sum) - kMean) * kInverseDeviation;
}

// A response curve as a table over the square root of light, where its curvature is smallest. Linear in between: the
// error is less than 1e-6.
class CurveTable
{
public:
    explicit CurveTable(ResponseCurve curve)
    {
        for (std::size_t i = 0; i < values.size(); ++i) {
            const float root = static_cast<float>(i) / kSteps;
            values[i] = encoded(curve, root * root);
        }
    }
    [[nodiscard]] float operator()(float linear) const
    {
        const float place = std::sqrt(limited(linear)) * kSteps;
        const auto index = static_cast<std::size_t>(place);
        return mix(values[index], values[index + 1], place - static_cast<float>(index));
    }

private:
    static constexpr int kSteps = 4096;
    std::array<float, kSteps + 2> values{}; // one beyond the last, for the step of light 1
};

// Signed uniform number -1..1.
double deviation(std::uint64_t seed, std::uint64_t index)
{
    return static_cast<double>(mixed(seed * kGolden + mixed(index + 1)) >> 11) / 4503599627370496.0 - 1.0;
}

float filmic(float value) { return mix(value, value * value * (3.0f - 2.0f * value), kFilmicStrength); }

float inverseFilmic(float value)
{
    float low = 0.0f;
    float high = 1.0f;
    constexpr int kHalvings = 26; // to the last bit of a float below 1
    for (int i = 0; i < kHalvings; ++i) {
        const float middle = 0.5f * (low + high);
        (filmic(middle) < value ? low : high) = middle;
    }
    return 0.5f * (low + high);
}

} // namespace

double exposureValue(const ExposureSettings& exposure)
{
    constexpr ExposureSettings kZero;
    const auto light = [](const ExposureSettings& e) {
        return e.shutterSeconds * e.isoSpeed / (e.aperture * e.aperture);
    };
    if (!(light(exposure) > 0.0) || !std::isfinite(light(exposure)))
        throw std::invalid_argument("ExposureSettings: time, aperture and ISO must be above 0");
    return std::log2(light(exposure) / light(kZero));
}

ExposureSettings exposedBy(const ExposureSettings& base, double ev)
{
    ExposureSettings exposure = base;
    exposure.shutterSeconds *= std::exp2(ev);
    return exposure;
}

float encoded(ResponseCurve curve, float linear)
{
    const float light = limited(linear);
    if (curve == ResponseCurve::Linear)
        return light;
    const float value = light <= 0.0031308f ? 12.92f * light : 1.055f * std::pow(light, 1.0f / 2.4f) - 0.055f;
    return curve == ResponseCurve::Filmic ? filmic(value) : value;
}

float decoded(ResponseCurve curve, float value)
{
    float v = limited(value);
    if (curve == ResponseCurve::Linear)
        return v;
    if (curve == ResponseCurve::Filmic)
        v = inverseFilmic(v);
    return v <= 0.04045f ? v / 12.92f : std::pow((v + 0.055f) / 1.055f, 2.4f);
}

Homography sceneFromFrame(const CameraView& view, _Size<int> size)
{
    const double middleX = 0.5 * (size.width - 1);
    const double middleY = 0.5 * (size.height - 1);
    const double turn = view.rotationDegrees * std::numbers::pi / 180.0;
    const double c = std::cos(turn) / view.zoom;
    const double s = std::sin(turn) / view.zoom;
    const Homography toMiddle = {1, 0, -middleX, 0, 1, -middleY, 0, 0, 1};
    const Homography turned = {
        c, -s, 0, s, c, 0, view.keystoneX / std::max(middleX, 1.0), view.keystoneY / std::max(middleY, 1.0), 1};
    const Homography back = {1, 0, middleX + view.shiftX, 0, 1, middleY + view.shiftY, 0, 0, 1};
    return compose(back, compose(turned, toMiddle));
}

std::vector<CameraView> handShake(std::size_t count, std::size_t steady, const CameraView& amplitude,
                                  std::uint64_t seed)
{
    std::vector<CameraView> views(count);
    for (std::size_t i = 0; i < count; ++i) {
        if (i == steady)
            continue;
        const auto by = [&](std::uint64_t which) { return deviation(seed, i * 8 + which); };
        views[i] = {amplitude.rotationDegrees * by(0),    amplitude.shiftX * by(1),    amplitude.shiftY * by(2),
                    1.0 + (amplitude.zoom - 1.0) * by(3), amplitude.keystoneX * by(4), amplitude.keystoneY * by(5)};
    }
    return views;
}

NoiseSource::NoiseSource(const std::optional<SensorNoise>& noise, const ExposureSettings& exposure, std::uint64_t seed_)
    : seed(mixed(seed_ * kGolden))
{
    if (!noise)
        return;
    if (!(noise->fullWellElectrons > 0.0 && noise->readNoiseElectrons >= 0.0))
        throw std::invalid_argument("SensorNoise: the full well is " + std::to_string(noise->fullWellElectrons) +
                                    ", it must be above 0, and the read noise not below 0");
    perElectron = static_cast<float>(exposure.isoSpeed / (100.0 * noise->fullWellElectrons));
    readVariance = square(static_cast<float>(noise->readNoiseElectrons) * perElectron);
}

float NoiseSource::noisy(float linear, std::uint64_t sample) const
{
    const float variance = std::max(linear, 0.0f) * perElectron + readVariance;
    return linear + std::sqrt(variance) * normalNumber(seed + sample * kGolden);
}

Sight::Sight(const RadianceScene& scene_, const Shot& shot)
    : scene(scene_), subject(shot.subject), map(sceneFromFrame(shot.view, scene_.size()))
{
    if (!subject)
        return;
    const Homography frameFromScene = inverse(map);
    const _Rect<double> bounds = subjectBounds(*subject);
    double left = HUGE_VAL, top = HUGE_VAL, right = -HUGE_VAL, bottom = -HUGE_VAL;
    for (const double x : {bounds.x, bounds.x + bounds.width})
        for (const double y : {bounds.y, bounds.y + bounds.height}) {
            const auto corner = mapPoint(frameFromScene, {x, y});
            left = std::min(left, corner.x);
            right = std::max(right, corner.x);
            top = std::min(top, corner.y);
            bottom = std::max(bottom, corner.y);
        }
    subjectBox = {left, top, right - left, bottom - top};
}

template <typename Visit>
void Sight::overSubject(int y, int width, const Visit& visit) const
{
    if (!subject || y < subjectBox.y || y > subjectBox.y + subjectBox.height)
        return;
    const double last = std::min(width - 1.0, subjectBox.x + subjectBox.width);
    for (double x = std::max(0.0, std::ceil(subjectBox.x)); x <= last; ++x) {
        const auto at = mapPoint(map, {x, static_cast<double>(y)});
        const SubjectSample sample = sampleSubject(*subject, at.x, at.y);
        if (sample.coverage > 0.0f)
            visit(static_cast<int>(x), sample);
    }
}

void Sight::row(int y, int width, PixelRGB<float>* light) const
{
    scene.radianceRow(map, y, width, light);
    overSubject(y, width,
                [&](int x, const SubjectSample& sample) { light[x] = mix(light[x], sample.light, sample.coverage); });
}

void Sight::coverageRow(int y, int width, float* coverageOut) const
{
    std::fill(coverageOut, coverageOut + width, 0.0f);
    overSubject(y, width, [&](int x, const SubjectSample& sample) { coverageOut[x] = sample.coverage; });
}

std::shared_ptr<Picture> seenRadiance(const RadianceScene& scene, const Shot& shot)
{
    auto picture = std::make_shared<Picture>(scene.size(), ColorProfileType::linearSRGB());
    const Sight sight(scene, shot);
    const auto seeRow = [&](int y) { sight.row(y, picture->width(), picture->row(y)); };
    forEachRow(picture->height(), seeRow);
    return picture;
}

std::shared_ptr<MaskImage> subjectMask(const RadianceScene& scene, const Shot& shot)
{
    auto mask = std::make_shared<MaskImage>(scene.size());
    const Sight sight(scene, shot);
    const auto coverRow = [&](int y) { sight.coverageRow(y, mask->width(), mask->row(y)); };
    forEachRow(mask->height(), coverRow);
    return mask;
}

std::shared_ptr<Picture> takePicture(const RadianceScene& scene, const CameraSettings& camera, const Shot& shot)
{
    const bool linear = camera.response == ResponseCurve::Linear;
    auto picture =
        std::make_shared<Picture>(scene.size(), linear ? ColorProfileType::linearSRGB() : ColorProfileType::sRGB());
    const Sight sight(scene, shot);
    const float gain = static_cast<float>(std::exp2(exposureValue(shot.exposure)));
    const NoiseSource noise(camera.noise, shot.exposure, shot.noiseSeed);
    const CurveTable curve(camera.response);
    const auto exposeRow = [&](int y) {
        PixelRGB<float>* row = picture->row(y);
        const int width = picture->width();
        sight.row(y, width, row);
        float* samples = &row->r;
        const std::uint64_t first = static_cast<std::uint64_t>(y) * static_cast<std::uint64_t>(width) * 3;
        const auto count = static_cast<std::uint64_t>(width) * 3;
        for (std::uint64_t i = 0; i < count; ++i)
            samples[i] *= gain;
        if (!noise.silent())
            for (std::uint64_t i = 0; i < count; ++i)
                samples[i] = noise.noisy(samples[i], first + i);
        if (linear)
            for (std::uint64_t i = 0; i < count; ++i)
                samples[i] = limited(samples[i]);
        else
            for (std::uint64_t i = 0; i < count; ++i)
                samples[i] = curve(samples[i]);
    };
    forEachRow(picture->height(), exposeRow);
    return picture;
}

} // namespace orvo::scenes
