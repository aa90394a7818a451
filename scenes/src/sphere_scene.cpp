#include <orvo_core/color_profile.hpp>
#include <orvo_core/parallel.hpp>
#include <scenes/sphere_scene.hpp>

#include <algorithm>
#include <cmath>
#include <numbers>

namespace orvo::scenes {
namespace {

constexpr double kDegree = std::numbers::pi / 180.0;

// Wavelengths of the noise, in degrees: each octave halves the previous one.
constexpr double kCoarsest = 24.0;
constexpr int kOctaves = 9;
constexpr double kOctaveGain = 0.72; // flatter than in nature, so that every scale has detectable features

// Bit mixer of the SplitMix64 generator (Steele, Lea, Flood, OOPSLA 2014).
constexpr std::uint64_t mixed(std::uint64_t z)
{
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9u;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBu;
    return z ^ (z >> 31);
}

double unit(std::uint64_t bits) { return static_cast<double>(mixed(bits) >> 11) / 9007199254740992.0; }

double fade(double t) { return t * t * t * (t * (t * 6.0 - 15.0) + 10.0); }

// Value noise of the integer lattice, -1..1, twice differentiable.
double valueNoise(double x, double y, double z, std::uint64_t seed)
{
    const double fx = std::floor(x);
    const double fy = std::floor(y);
    const double fz = std::floor(z);
    const double tx = fade(x - fx);
    const double ty = fade(y - fy);
    const double tz = fade(z - fz);
    const auto corner = [&](int dx, int dy, int dz) {
        const auto ix = static_cast<std::uint64_t>(static_cast<std::int64_t>(fx) + dx);
        const auto iy = static_cast<std::uint64_t>(static_cast<std::int64_t>(fy) + dy);
        const auto iz = static_cast<std::uint64_t>(static_cast<std::int64_t>(fz) + dz);
        return unit(seed ^ (ix * 0x9E3779B97F4A7C15u) ^ (iy * 0xC2B2AE3D27D4EB4Fu) ^ (iz * 0x165667B19E3779F9u)) * 2.0 -
               1.0;
    };
    const auto along = [](double a, double b, double t) { return a + (b - a) * t; };
    const auto alongX = [&](int dy, int dz) { return along(corner(0, dy, dz), corner(1, dy, dz), tx); };
    const auto alongY = [&](int dz) { return along(alongX(0, dz), alongX(1, dz), ty); };
    return along(alongY(0), alongY(1), tz);
}

double smoothStep(double from, double to, double value)
{
    const double t = std::clamp((value - from) / (to - from), 0.0, 1.0);
    return t * t * (3.0 - 2.0 * t);
}

Rotation product(const Rotation& a, const Rotation& b)
{
    Rotation out{};
    for (std::size_t r = 0; r < 3; ++r)
        for (std::size_t c = 0; c < 3; ++c)
            out[r * 3 + c] = a[r * 3] * b[c] + a[r * 3 + 1] * b[3 + c] + a[r * 3 + 2] * b[6 + c];
    return out;
}

// Approximately normal with deviation 1: the sum of four uniform numbers.
double normalNumber(std::uint64_t bits)
{
    double sum = -2.0;
    for (std::uint64_t i = 0; i < 4; ++i)
        sum += unit(bits * 4 + i);
    return sum * std::sqrt(3.0);
}

} // namespace

Rotation rotationOf(double yaw, double pitch, double roll)
{
    const double a = yaw * kDegree;
    const double b = pitch * kDegree;
    const double c = roll * kDegree;
    const Rotation aboutY = {std::cos(a), 0, std::sin(a), 0, 1, 0, -std::sin(a), 0, std::cos(a)};
    const Rotation aboutX = {1, 0, 0, 0, std::cos(b), -std::sin(b), 0, std::sin(b), std::cos(b)};
    const Rotation aboutZ = {std::cos(c), -std::sin(c), 0, std::sin(c), std::cos(c), 0, 0, 0, 1};
    return product(aboutY, product(aboutX, aboutZ));
}

Rotation relative(const Rotation& a, const Rotation& b)
{
    const Rotation transposed = {a[0], a[3], a[6], a[1], a[4], a[7], a[2], a[5], a[8]};
    return product(transposed, b);
}

double angleBetween(const Rotation& a, const Rotation& b)
{
    // By the sine of half the angle, which is exact for small ones.
    double sum = 0.0;
    for (std::size_t i = 0; i < 9; ++i)
        sum += (a[i] - b[i]) * (a[i] - b[i]);
    return 2.0 * std::asin(std::min(1.0, std::sqrt(sum / 8.0))) / kDegree;
}

SphereScene::SphereScene(std::uint64_t seed_) : seed(mixed(seed_ + 1)) {}

PixelRGB<float> SphereScene::light(double x, double y, double z, double finest) const
{
    double sum = 0.0;
    double weight = 1.0;
    double wavelength = kCoarsest;
    for (int octave = 0; octave < kOctaves; ++octave) {
        // The last octave that still fits fades out, so that two views of different scale agree.
        const double share = smoothStep(finest, 2.0 * finest, wavelength);
        if (share <= 0.0)
            break;
        const double scale = 1.0 / (wavelength * kDegree);
        sum += share * weight * valueNoise(x * scale, y * scale, z * scale, seed + static_cast<std::uint64_t>(octave));
        weight *= kOctaveGain;
        wavelength *= 0.5;
    }
    const double tone = 0.5 + 0.5 * std::tanh(0.9 * sum);
    // Plates with hard rims, some degrees across.
    const double plates = valueNoise(x * 9.0, y * 9.0, z * 9.0, seed + 101);
    const double rim = 0.01 + 0.02 * finest;
    const double plate = smoothStep(0.25 - rim, 0.25 + rim, plates) - smoothStep(0.55 - rim, 0.55 + rim, plates);
    const double hue = valueNoise(x * 2.0, y * 2.0, z * 2.0, seed + 201);
    const double base = (0.04 + 0.5 * tone * tone) * (1.0 - 0.55 * plate) + 0.02;
    return {static_cast<float>(base * (1.0 + 0.25 * hue)), static_cast<float>(base),
            static_cast<float>(base * (1.0 - 0.25 * hue) + 0.02 * plate)};
}

std::shared_ptr<_ImageData<PixelRGB<float>>> SphereScene::see(const SphereView& view, std::uint64_t noiseSeed) const
{
    auto picture = std::make_shared<_ImageData<PixelRGB<float>>>(view.size, ColorProfileType::sRGB());
    const double cx = 0.5 * view.size.width;
    const double cy = 0.5 * view.size.height;
    const double corner = cx * cx + cy * cy;
    const double gain = std::exp2(view.ev);
    const double finest = 3.0 * std::atan(1.0 / view.focal) / kDegree; // of three pixels
    const auto& r = view.rotation;
    std::array<double, 3> ball{};
    if (view.subject) {
        const Rotation to = rotationOf(view.subject->yaw, view.subject->pitch, 0.0);
        ball = {to[2], to[5], to[8]};
    }
    forEachRow(view.size.height, [&](int row) {
        PixelRGB<float>* const out = picture->row(row);
        for (int column = 0; column < view.size.width; ++column) {
            const double u = (column - cx) / view.focal;
            const double v = (row - cy) / view.focal;
            const double length = std::sqrt(u * u + v * v + 1.0);
            const double x = (r[0] * u + r[1] * v + r[2]) / length;
            const double y = (r[3] * u + r[4] * v + r[5]) / length;
            const double z = (r[6] * u + r[7] * v + r[8]) / length;
            PixelRGB<float> seen = light(x, y, z, finest);
            if (view.subject) {
                const double cosine = x * ball[0] + y * ball[1] + z * ball[2];
                const double angle = std::acos(std::clamp(cosine, -1.0, 1.0)) / kDegree;
                const auto cover = static_cast<float>(
                    1.0 - smoothStep(view.subject->radius - finest / 3.0, view.subject->radius, angle));
                seen.r += (0.8f - seen.r) * cover;
                seen.g += (0.1f - seen.g) * cover;
                seen.b += (0.1f - seen.b) * cover;
            }
            const double rr = ((column - cx) * (column - cx) + (row - cy) * (row - cy)) / corner;
            const double falloff =
                1.0 + rr * (view.vignetting[0] + rr * (view.vignetting[1] + rr * view.vignetting[2]));
            const auto sample = (static_cast<std::uint64_t>(row) << 32) | static_cast<std::uint64_t>(column);
            const auto encode = [&](float linear, std::uint64_t channel) {
                double value = static_cast<double>(
                    srgbCurveFromLinear(static_cast<float>(std::clamp(linear * gain / falloff, 0.0, 1.0))));
                if (view.noise > 0.0)
                    value += view.noise * normalNumber(mixed(noiseSeed) ^ (sample * 3 + channel));
                return static_cast<float>(std::clamp(value, 0.0, 1.0));
            };
            out[column] = {encode(seen.r, 0), encode(seen.g, 1), encode(seen.b, 2)};
        }
    });
    return picture;
}

std::vector<SphereView> rowOfViews(int count, double step, double pitch, const SphereView& like, double shake,
                                   std::uint64_t seed)
{
    std::vector<SphereView> views;
    for (int i = 0; i < count; ++i) {
        const auto deviation = [&](std::uint64_t which) {
            return shake * (2.0 * unit(mixed(seed) + static_cast<std::uint64_t>(i) * 3 + which) - 1.0);
        };
        SphereView view = like;
        const double yaw = (i - 0.5 * (count - 1)) * step;
        view.rotation = rotationOf(yaw + deviation(0), pitch + deviation(1), deviation(2));
        views.push_back(view);
    }
    return views;
}

} // namespace orvo::scenes
