#include "transfer_curve.hpp"

#include <orvo_core/color_profile.hpp>
#include <orvo_core/color_transform.hpp>
#include <orvo_core/detail/vector_code.hpp>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <stdexcept>

namespace orvo {
namespace {

// IEC 61966-2-1.
constexpr double kSrgbKneeEncoded = 0.04045;
constexpr double kSrgbKneeLight = 0.0031308;
constexpr double kSrgbSlope = 12.92;
constexpr double kSrgbOffset = 0.055;
constexpr double kSrgbPower = 2.4;

double srgbLight(double encoded)
{
    return encoded <= kSrgbKneeEncoded ? encoded / kSrgbSlope
                                       : std::pow((encoded + kSrgbOffset) / (1.0 + kSrgbOffset), kSrgbPower);
}

// log2 of a positive number. Its mantissa m, between sqrt(1/2) and sqrt(2), goes through the series of the inverse
// hyperbolic tangent, ln m = 2 (s + s^3/3 + s^5/5 + ...) with s = (m-1)/(m+1); |s| < 0.172, so the remainder is below
// 2e-9.
ORVO_INLINE float log2Positive(float x)
{
    constexpr std::int32_t kRootOfHalf = 0x3F3504F3;
    constexpr float kScale = 2.885390082f; // 2 / ln 2
    const auto bits = std::bit_cast<std::int32_t>(x);
    const std::int32_t exponent = (bits - kRootOfHalf) >> 23;
    const float mantissa = std::bit_cast<float>(bits - exponent * (1 << 23));
    const float s = (mantissa - 1.0f) / (mantissa + 1.0f);
    const float q = s * s;
    const float series = (((q * (kScale / 9.0f) + kScale / 7.0f) * q + kScale / 5.0f) * q + kScale / 3.0f) * q + kScale;
    return static_cast<float>(exponent) + series * s;
}

// 2 to the power of y: the integer part goes into the exponent, the rest, within +-1/2, through the series of
// e^(y ln 2) up to the seventh power, with a remainder below 6e-9.
ORVO_INLINE float exp2Limited(float y)
{
    constexpr float kRounder = 12582912.0f; // 1.5 * 2^23: adding it leaves no bits for the fraction
    y = y < -126.0f ? -126.0f : y;
    y = y < 127.0f ? y : 127.0f; // also for NaN
    const float whole = (y + kRounder) - kRounder;
    const float f = y - whole;
    float series = f * 1.52527338e-5f + 1.54035304e-4f;
    series = series * f + 1.33335581e-3f;
    series = series * f + 9.61812911e-3f;
    series = series * f + 5.55041087e-2f;
    series = series * f + 2.40226507e-1f;
    series = series * f + 6.93147181e-1f;
    series = series * f + 1.0f;
    return series * std::bit_cast<float>((static_cast<std::int32_t>(whole) + 127) * (1 << 23));
}

// The value of an odd curve at x from `positive`, its value at |x|. NaN stays NaN.
ORVO_INLINE float mirrored(float x, float positive)
{
    constexpr std::uint32_t kSign = 0x80000000u;
    const auto sign = std::bit_cast<std::uint32_t>(x) & kSign;
    const float value = std::bit_cast<float>(std::bit_cast<std::uint32_t>(positive) | sign);
    return x == x ? value : x;
}

ORVO_INLINE float magnitude(float x) { return std::bit_cast<float>(std::bit_cast<std::uint32_t>(x) & 0x7FFFFFFFu); }

struct DecodeSRGB
{
    ORVO_INLINE float operator()(float x) const
    {
        const float a = magnitude(x);
        const float base = (a + static_cast<float>(kSrgbOffset)) * static_cast<float>(1.0 / (1.0 + kSrgbOffset));
        const float curved = exp2Limited(static_cast<float>(kSrgbPower) * log2Positive(base));
        const float straight = a * static_cast<float>(1.0 / kSrgbSlope);
        return mirrored(x, a <= static_cast<float>(kSrgbKneeEncoded) ? straight : curved);
    }
};

struct EncodeSRGB
{
    ORVO_INLINE float operator()(float x) const
    {
        const float a = magnitude(x);
        const float root = exp2Limited(static_cast<float>(1.0 / kSrgbPower) * log2Positive(a));
        const float curved = root * static_cast<float>(1.0 + kSrgbOffset) - static_cast<float>(kSrgbOffset);
        const float straight = a * static_cast<float>(kSrgbSlope);
        return mirrored(x, a <= static_cast<float>(kSrgbKneeLight) ? straight : curved);
    }
};

struct Power
{
    float exponent;

    ORVO_INLINE float operator()(float x) const
    {
        constexpr float kNothing = 1.17549435e-38f; // below the smallest normal number the exponent is meaningless
        const float a = magnitude(x);
        const float raised = exp2Limited(exponent * log2Positive(a));
        return mirrored(x, a < kNothing ? 0.0f : raised);
    }
};

template <typename Curve>
struct CurveLoop
{
    Curve curve;
    float* samples;
    int count;

    ORVO_INLINE void operator()() const
    {
        const Curve local = curve;
        float* const values = samples;
        const int length = count;
        for (int i = 0; i < length; ++i)
            values[i] = local(values[i]);
    }
};

template <typename Curve>
void apply(const Curve& curve, float* samples, int count)
{
    runLoop(CurveLoop<Curve>{curve, samples, count});
}

// Two curves are equal if their encoded values for the same light never differ by more than the first; the second is
// the rounding of a file's 16-bit table.
constexpr double kSameEncoded = 1e-4;
constexpr double kTableRounding = 1.0 / 65535;

template <typename Reference>
bool isSameCurve(const std::vector<double>& light, const Reference& reference)
{
    const auto steps = static_cast<double>(light.size() - 1);
    for (std::size_t i = 0; i < light.size(); ++i) {
        const double x = static_cast<double>(i) / steps;
        const double slope = (reference(x + 0.5 / steps) - reference(std::max(0.0, x - 0.5 / steps))) * steps;
        if (!(std::abs(light[i] - reference(x)) <= kSameEncoded * slope + kTableRounding))
            return false;
    }
    return true;
}

// srgbLight() at the places where isSameCurve() needs it: half steps, to half a step beyond 1. Every file with a
// profile is compared with it, and three powers for each place took longer than reading the rest of its header.
double srgbLightAt(double x)
{
    constexpr int kHalfSteps = 2 * TransferCurve::kTableSteps;
    static const std::vector<double> table = [] {
        std::vector<double> values(kHalfSteps + 2);
        for (std::size_t i = 0; i < values.size(); ++i)
            values[i] = srgbLight(static_cast<double>(i) / kHalfSteps);
        return values;
    }();
    return table[static_cast<std::size_t>(x * kHalfSteps)];
}

// Beyond its end a table continues with its mean slope over this many steps; one step alone would be mostly rounding.
constexpr int kEndSteps = 64;

} // namespace

float linearFromSRGBCurve(float encoded)
{
    return static_cast<float>(std::copysign(srgbLight(std::abs(static_cast<double>(encoded))), encoded));
}

float srgbCurveFromLinear(float linear)
{
    const double a = std::abs(static_cast<double>(linear));
    const double encoded =
        a <= kSrgbKneeLight ? a * kSrgbSlope : (1.0 + kSrgbOffset) * std::pow(a, 1.0 / kSrgbPower) - kSrgbOffset;
    return static_cast<float>(std::copysign(encoded, linear));
}

void linearFromSRGBCurve(float* samples, int count) { apply(DecodeSRGB(), samples, count); }

void srgbCurveFromLinear(float* samples, int count) { apply(EncodeSRGB(), samples, count); }

TransferCurve::TransferCurve(const std::function<double(double)>& light)
{
    std::vector<double> values(kTableSteps + 1);
    for (int i = 0; i <= kTableSteps; ++i)
        values[static_cast<std::size_t>(i)] = light(static_cast<double>(i) / kTableSteps);
    if (!(std::abs(values.front()) <= kSameEncoded && std::abs(values.back() - 1.0) <= kSameEncoded &&
          std::is_sorted(values.begin(), values.end()) && values.back() > values[kTableSteps - kEndSteps]))
        throw std::invalid_argument("TransferCurve: the curve does not increase from 0 to 1");

    const double middle = std::log(values[kTableSteps / 2]) / std::log(0.5);
    if (isSameCurve(values, [](double x) { return x; })) {
        form = Kind::kLinear;
    } else if (isSameCurve(values, srgbLightAt)) {
        form = Kind::kSRGB;
    } else if (isSameCurve(values, [middle](double x) { return std::pow(x, middle); })) {
        form = Kind::kGamma;
        gamma = static_cast<float>(middle);
    } else {
        fillTable(values);
    }
}

void TransferCurve::fillTable(const std::vector<double>& values)
{
    form = Kind::kSampled;
    table.resize(values.size());
    std::transform(values.begin(), values.end(), table.begin(), [](double v) { return static_cast<float>(v); });
    table.front() = 0.0f;
    table.back() = 1.0f;
    endSlope = static_cast<float>((1.0 - values[kTableSteps - kEndSteps]) * kTableSteps / kEndSteps);
    guide.resize(kTableSteps + 1);
    int step = 0;
    for (int i = 0; i <= kTableSteps; ++i) {
        const auto root = static_cast<float>(i) / kTableSteps;
        while (step < kTableSteps - 1 && table[static_cast<std::size_t>(step) + 1] < root * root)
            ++step;
        guide[static_cast<std::size_t>(i)] = step;
    }
}

float TransferCurve::lightOf(float encoded) const
{
    const float a = std::abs(encoded);
    if (!(a < 1.0f))
        return std::copysign(1.0f + (a - 1.0f) * endSlope, encoded);
    const float position = a * kTableSteps;
    const auto step = static_cast<std::size_t>(position);
    const float share = position - static_cast<float>(step);
    return std::copysign(table[step] + share * (table[step + 1] - table[step]), encoded);
}

float TransferCurve::encodedOf(float light) const
{
    const float a = std::abs(light);
    if (!(a < 1.0f))
        return std::copysign(1.0f + (a - 1.0f) / endSlope, light);
    auto step = static_cast<std::size_t>(guide[static_cast<std::size_t>(std::sqrt(a) * kTableSteps)]);
    while (step > 0 && table[step] > a) // rounding of the root may point one step too far
        --step;
    while (step + 1 < kTableSteps && table[step + 1] < a)
        ++step;
    const float rise = table[step + 1] - table[step];
    const float share = rise > 0.0f ? (a - table[step]) / rise : 0.0f;
    return std::copysign((static_cast<float>(step) + share) / kTableSteps, light);
}

void TransferCurve::decode(float* samples, int count) const
{
    switch (form) {
    case Kind::kLinear:
        return;
    case Kind::kSRGB:
        return apply(DecodeSRGB(), samples, count);
    case Kind::kGamma:
        return apply(Power{gamma}, samples, count);
    case Kind::kSampled:
        std::transform(samples, samples + count, samples, [this](float v) { return lightOf(v); });
    }
}

void TransferCurve::encode(float* samples, int count) const
{
    switch (form) {
    case Kind::kLinear:
        return;
    case Kind::kSRGB:
        return apply(EncodeSRGB(), samples, count);
    case Kind::kGamma:
        return apply(Power{1.0f / gamma}, samples, count);
    case Kind::kSampled:
        std::transform(samples, samples + count, samples, [this](float v) { return encodedOf(v); });
    }
}

std::string TransferCurve::text() const
{
    switch (form) {
    case Kind::kLinear:
        return "linear";
    case Kind::kSRGB:
        return "srgb";
    case Kind::kGamma: {
        char line[32];
        std::snprintf(line, sizeof line, "gamma%.2f", static_cast<double>(gamma)); // files round it to 1/256
        return line;
    }
    case Kind::kSampled:
        break;
    }
    constexpr std::size_t kSamples = 16;
    constexpr float kUnits = 1024.0f; // steps finer than an 8-bit picture shows
    std::string result = "table";
    for (std::size_t i = 1; i < kSamples; ++i)
        result.append(",").append(std::to_string(std::lround(table[i * kTableSteps / kSamples] * kUnits)));
    return result;
}

} // namespace orvo
