#include <orvo_core/color_transform.hpp>
#include <orvo_core/detail/vector_code.hpp>
#include <orvo_image_processing/grfx_curves.hpp>

namespace orvo {
namespace {

// Schlick's gain with slope `1 + bend` at one half and 1/(1 + bend) at the ends; its inverse is the one with the
// reciprocal slope.
constexpr float kBend = 0.5f;
constexpr float kInverseBend = 1.0f / (1.0f + kBend) - 1.0f;

ORVO_INLINE float schlickGain(float x, float bend)
{
    const float inner = x > 0.0f ? (x < 1.0f ? x : 1.0f) : 0.0f;
    const float outer = (x - inner) / (1.0f + bend); // linear beyond the ends; NaN stays NaN
    const float mirrored = inner < 0.5f ? inner : 1.0f - inner;
    const float value = mirrored / (bend * (1.0f - 2.0f * mirrored) + 1.0f);
    return (inner < 0.5f ? value : 1.0f - value) + outer;
}

float tone(float sample) { return schlickGain(sample, kBend); }

float inverseTone(float sample) { return schlickGain(sample, kInverseBend); }

ORVO_VECTOR_CLONES void toneMany(float* samples, int count)
{
    for (int i = 0; i < count; ++i)
        samples[i] = schlickGain(samples[i], kBend);
}

ORVO_VECTOR_CLONES void inverseToneMany(float* samples, int count)
{
    for (int i = 0; i < count; ++i)
        samples[i] = schlickGain(samples[i], kInverseBend);
}

constexpr grfx_curve_ext_t kGamma(srgbCurveFromLinear, srgbCurveFromLinear);
constexpr grfx_curve_ext_t kInverseGamma(linearFromSRGBCurve, linearFromSRGBCurve);

} // namespace

const grfx_curve_ext_t& grfx_gamma() { return kGamma; }

const grfx_curve_ext_t& grfx_inv_gamma() { return kInverseGamma; }

const grfx_curve_ext_t& grfx_tone()
{
    static const grfx_curve_ext_t curve(tone, toneMany);
    return curve;
}

const grfx_curve_ext_t& grfx_inv_tone()
{
    static const grfx_curve_ext_t curve(inverseTone, inverseToneMany);
    return curve;
}

} // namespace orvo
