#include "common/curve_tables.hpp"
#include "raw/white_point.hpp"

#include <orvo/lens_correction.hpp>
#include <orvo/raw_development.hpp>
#include <orvo_common/run_control.hpp>
#include <orvo_common/scoped_timer.hpp>
#include <orvo_core/parallel.hpp>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <vector>

namespace orvo {
namespace {

constexpr float kMostExposure = 20.0f; // EV to either side; beyond it only black and white are left
constexpr float kMostLight = 1e6f;     // of the sensor's saturation: no camera records that, and its square is finite
constexpr float kLeastLight = -1.0f;   // noise around black goes below 0, but never by the whole scale

// Output level up to which the curve is linear: +1 EV doubles tones that end below it.
constexpr float kShoulder = 0.7f;

// Share of the sensor's linear range above which clipping is suspected. Above it a colour fades to neutral, because the
// channels clip one after the other, and white balance turns the rest into magenta.
constexpr float kClipStart = 0.7f;

// Green levels, as a share of the same range, between which a bright magenta changes from the colour of a lamp to the
// rim of a clipped area; and the share of the range from which red or blue must come out of a clipped area: below it a
// magenta glow keeps its hue.
constexpr float kRimStart = 0.35f;
constexpr float kRimEnd = 0.7f;
constexpr float kRimClipped = 0.9f;

// EV that a fully clipped tone gets beyond the sensor's value: the light there was at least full scale, and on average
// considerably more.
constexpr float kClippedExcess = 0.4f;

// Share of a negative exposure that a fully clipped tone does not follow. A darker frame of a real bracket would show
// these places near white, so a rung made from this frame must not show them gray; still, a rung must be darker than
// the one above it, or the merge could not tell which has the better highlights.
constexpr float kClippedHold = 0.45f;

// Contrast of the finished look: a slope of 1.2 in the middle, 0.6 and 0.5 at the ends.
constexpr float kContrast = 0.9f;

// The tone that contrast keeps, encoded: middle gray of 18 percent. Not the middle of the frame, nor is brightening
// limited by its highlights: neighbours in a panorama show different parts of one scene and must look alike.
constexpr float kPivot = 0.46f;

// Oklab's cone responses of linear light in the working space (primaries of ISO 22028-2, adapted from D50 to D65 by
// Bradford), each row divided by its sum, so that white has equal ones; and the way back.
constexpr std::array<std::array<float, 3>, 3> kConesFromRgb{{{0.71532894f, 0.35290816f, -0.06823710f},
                                                             {0.27435432f, 0.66785101f, 0.05779467f},
                                                             {0.10975411f, 0.18620888f, 0.70403701f}}};
constexpr std::array<std::array<float, 3>, 3> kRgbFromCones{{{1.73873951f, -0.98840088f, 0.24966137f},
                                                             {-0.70700241f, 1.93431564f, -0.22731323f},
                                                             {-0.08406330f, -0.35751770f, 1.44158100f}}};

float finiteOr0(float value) { return std::isfinite(value) ? value : 0.0f; }

float cleaned(float light)
{
    if (light >= kLeastLight)
        return std::min(light, kMostLight);
    return std::isnan(light) ? 0.0f : kLeastLight;
}

float smoothStep(float from, float to, float value)
{
    const float t = std::clamp((value - from) / (to - from), 0.0f, 1.0f);
    return t * t * (3.0f - 2.0f * t);
}

// Linear to kShoulder, then an exponential that continues with the same slope and ends at 1.
float shoulder(float light)
{
    constexpr float kRoom = 1.0f - kShoulder;
    return light <= kShoulder ? light : 1.0f - kRoom * std::exp((kShoulder - light) / kRoom);
}

// Converts a linear pixel to an encoded one.
class Developer
{
public:
    Developer(float exposure, float linearLimit) : gain(std::exp2(exposure))
    {
        const float limit = linearLimit > 0.0f && linearLimit <= 1.0f ? linearLimit : 1.0f;
        clipStart = kClipStart * limit;
        clipEnd = limit;
        clippedLift = kClippedExcess + kClippedHold * std::max(0.0f, -exposure);
    }

    void setContrast(float amount, float pivot)
    {
        contrast = amount;
        contrastPivot = pivot;
    }

    [[nodiscard]] PixelRGB<float> operator()(const PixelRGB<float>& source) const
    {
        PixelRGB<float> pixel{cleaned(source.r), cleaned(source.g), cleaned(source.b)};
        scale(pixel, recoverClipped(pixel));
        const Whitening white = compress(pixel);
        if (white.share > 0.0f)
            whiten(pixel, white);
        return {encode(pixel.r), encode(pixel.g), encode(pixel.b)};
    }

private:
    static void scale(PixelRGB<float>& pixel, float factor)
    {
        pixel.r *= factor;
        pixel.g *= factor;
        pixel.b *= factor;
    }

    static void mix(PixelRGB<float>& pixel, float level, float share)
    {
        pixel.r += (level - pixel.r) * share;
        pixel.g += (level - pixel.g) * share;
        pixel.b += (level - pixel.b) * share;
    }

    // Green clips first. Where demosaicing mixes clipped green into a bright rim, only magenta indicates it. The whole
    // pixel goes towards neutral: raising green alone would turn magenta into red or blue on the way.
    void neutraliseRim(PixelRGB<float>& pixel) const
    {
        if (std::min(pixel.r, pixel.b) > pixel.g)
            mix(pixel, 0.5f * (pixel.r + pixel.b),
                smoothStep(kRimClipped * clipEnd, clipEnd, std::max(pixel.r, pixel.b)) *
                    smoothStep(kRimStart * clipEnd, kRimEnd * clipEnd, pixel.g));
    }

    // Removes the colour of clipped pixels and returns the gain of the pixel.
    [[nodiscard]] float recoverClipped(PixelRGB<float>& pixel) const
    {
        if (!(std::max(pixel.r, 0.0f) + std::max(pixel.g, 0.0f) + std::max(pixel.b, 0.0f) > clipStart))
            return gain; // none of the measures below reaches clipStart
        neutraliseRim(pixel);
        const float r = std::max(pixel.r, 0.0f);
        const float b = std::max(pixel.b, 0.0f);
        const float g = std::max(pixel.g, 0.0f);
        const float sum = r + g + b;
        // A smooth approximation of the second largest channel, equal to the level of a neutral: a lamp of one strong
        // colour keeps it, while two channels at the limit leave no information on the hue.
        const float pairs = (r * g + g * b + b * r) / sum;
        const float clipped = smoothStep(clipStart, clipEnd, pairs);
        if (clipped <= 0.0f)
            return gain;
        // The unclipped channels count more: they measured the actual brightness.
        mix(pixel, (r * r + g * g + b * b) / sum, clipped);
        return gain * std::exp2(clippedLift * clipped);
    }

    struct Whitening
    {
        float level = 0.0f; // linear
        float share = 0.0f;
    };

    // Compresses the strongest channel below 1 and scales the others with it to keep the hue; the stronger the
    // compression, the nearer to white.
    static Whitening compress(PixelRGB<float>& pixel)
    {
        const float strongest = std::max({pixel.r, pixel.g, pixel.b});
        if (strongest <= kShoulder)
            return {};
        const float level = shoulder(strongest);
        const float kept = level / strongest;
        scale(pixel, kept);
        return {level, (1.0f - kept) * (1.0f - kept)};
    }

    // Mixes with white at the level of the strongest channel. Mixed in linear light or in encoded values, blue turns to
    // violet on the way; in the cube roots of Oklab's cone responses a colour keeps its hue (Ottosson, "A perceptual
    // color space for image processing", 2020).
    static void whiten(PixelRGB<float>& pixel, const Whitening& white)
    {
        if (pixel.r == pixel.g && pixel.g == pixel.b)
            return; // exactly neutral stays so
        const float root = std::cbrt(white.level);
        const auto mixedCone = [&](const std::array<float, 3>& row) {
            const float cone = std::cbrt(row[0] * pixel.r + row[1] * pixel.g + row[2] * pixel.b);
            const float mixed = cone + (root - cone) * white.share;
            return mixed * mixed * mixed;
        };
        const std::array<float, 3> cones{mixedCone(kConesFromRgb[0]), mixedCone(kConesFromRgb[1]),
                                         mixedCone(kConesFromRgb[2])};
        const auto channel = [&](const std::array<float, 3>& row) {
            return row[0] * cones[0] + row[1] * cones[1] + row[2] * cones[2];
        };
        pixel = {channel(kRgbFromCones[0]), channel(kRgbFromCones[1]), channel(kRgbFromCones[2])};
        scale(pixel, white.level / std::max({pixel.r, pixel.g, pixel.b}));
    }

    [[nodiscard]] float encode(float light) const
    {
        const float v = tables.encode(light);
        if (contrast <= 0.0f)
            return v;
        // A cubic that keeps 0, the pivot and 1; linear below 0.
        return v <= 0.0f ? v * (1.0f - contrast * contrastPivot) : v + contrast * v * (1.0f - v) * (v - contrastPivot);
    }

    const details::CurveTables& tables = details::CurveTables::instance();
    float gain;
    float clipStart;
    float clipEnd;
    float clippedLift;
    float contrast = 0.0f;
    float contrastPivot = 0.5f;
};

float limitedExposure(float exposure) { return std::clamp(finiteOr0(exposure), -kMostExposure, kMostExposure); }

Developer finishedLook(const ImageMetadata* metadata, float tone, float strength, bool neutral, float extraExposure)
{
    const float baseline = metadata != nullptr ? finiteOr0(metadata->baselineExposure) : 0.0f;
    const float suggested = finiteOr0(tone) * std::clamp(finiteOr0(strength), 0.0f, 1.0f);
    const float exposure = limitedExposure(baseline + suggested + finiteOr0(extraExposure));
    Developer developer(exposure, metadata != nullptr ? metadata->linearResponseLimit : 1.0f);
    if (!neutral)
        developer.setContrast(kContrast, kPivot);
    return developer;
}

_Rect<int> insideOf(const _Rect<int>& rect, const _Size<int>& size)
{
    if (rect == _Rect<int>())
        return {0, 0, size.width, size.height};
    const int left = std::clamp(rect.x, 0, size.width);
    const int top = std::clamp(rect.y, 0, size.height);
    // In 64 bits, because a rectangle may extend beyond the largest integer.
    const auto end = [](int from, int length, int limit) {
        return static_cast<int>(std::clamp<long long>(static_cast<long long>(from) + length, 0, limit));
    };
    const int right = end(rect.x, rect.width, size.width);
    const int bottom = end(rect.y, rect.height, size.height);
    return {left, top, std::max(0, right - left), std::max(0, bottom - top)};
}

bool isLinearWorkingSpace(const std::shared_ptr<ColorProfile>& profile)
{
    return profile && *profile == *ColorProfileType::linearMelissaRGB();
}

} // namespace

void develop_for_hdr(PicturePointer& image, const std::shared_ptr<const ImageMetadata>& metadata,
                     const std::shared_ptr<AdditionalRawMetadata>& rawMetadata, float exposure, bool chromatic)
{
    if (!image || !image->colorProfile() || !image->colorProfile()->isLinear())
        return;
    const ScopedTimer timer("develop_for_hdr", 0);
    if (rawMetadata)
        rawMetadata->wait();
    if (!isLinearWorkingSpace(image->colorProfile()))
        image->convertTo(ColorProfileType::linearMelissaRGB());
    // The mark for corrected aberration is ignored: a ladder develops several copies of one frame, and each still has
    // it.
    if (chromatic)
        applyChromaticAbberationsCorrection(image);

    const float baseline = metadata ? finiteOr0(metadata->baselineExposure) : 0.0f;
    const Developer developer(limitedExposure(finiteOr0(exposure) + baseline),
                              metadata ? metadata->linearResponseLimit : 1.0f);
    PixelRGB<float>* const pixels = image->data();
    forEachRange(image->pixelCount(), [&](std::size_t first, std::size_t last) {
        for (std::size_t i = first; i != last; ++i)
            pixels[i] = developer(pixels[i]);
    });
    image->setColorProfile(ColorProfileType::melissaRGB());
}

PicturePointer toneThumbnail(const _ImageData<PixelRGB<float>>& picture)
{
    constexpr int kWidth = 512; // of pixels: enough to judge the overall tone
    const int width = std::min(picture.width(), kWidth);
    const auto height = static_cast<std::int64_t>(width) * picture.height() / picture.width();
    return picture.resize({width, std::max(1, static_cast<int>(height))}, {}, true);
}

RawImageDevelop::RawImageDevelop() = default;
RawImageDevelop::RawImageDevelop(float temperature, float tint, float exposure)
    : wantedTemperature(temperature), wantedTint(tint), extraExposure(exposure)
{}

void RawImageDevelop::develop(const PicturePointer& source, PicturePointer& target, const ThumbnailGetter&,
                              const std::shared_ptr<const ImageMetadata>& metadata, float tone, float strength,
                              _Rect<int> rect, bool flag, const std::function<bool()>& cancel) const
{
    // Own pointers: `source` and `target` are often the same variable.
    const PicturePointer from = source;
    const RunControl run(cancel);
    if (!from || run.cancelled())
        return;
    const ScopedTimer timer("RawImageDevelop::develop", 0);
    const _Rect<int> part = insideOf(rect, from->size());
    const bool inPlace = target == from && part.size() == from->size();
    if (!from->colorProfile() || !from->colorProfile()->isLinear()) {
        if (!inPlace)
            target = from->copy(part);
        return;
    }
    PicturePointer to =
        inPlace ? from : std::make_shared<_ImageData<PixelRGB<float>>>(part.size(), from->colorProfile());
    if (run.cancelled())
        return;

    const bool converted = !isLinearWorkingSpace(from->colorProfile());
    const Developer developer = finishedLook(metadata.get(), tone, strength, flag, extraExposure);
    const auto balance = metadata ? whiteBalanceShift({metadata->cameraTemperature, metadata->cameraTint},
                                                      {wantedTemperature, wantedTint})
                                  : std::nullopt;
    if (!inPlace)
        forEachRow(part.height, [&](int y) { std::copy_n(from->row(part.y + y) + part.x, part.width, to->row(y)); });
    if (converted)
        to->convertTo(ColorProfileType::linearMelissaRGB());
    PixelRGB<float>* const pixels = to->data();
    forEachRange(to->pixelCount(), [&](std::size_t first, std::size_t last) {
        for (std::size_t i = first; i != last; ++i)
            pixels[i] = developer(balance ? shifted(pixels[i], *balance) : pixels[i]);
    });
    to->setColorProfile(ColorProfileType::melissaRGB());
    target = std::move(to);
}

} // namespace orvo
