#include <orvo/finishing.hpp>
#include <orvo_common/memory_manager.hpp>
#include <orvo_common/scoped_timer.hpp>
#include <orvo_core/luma.hpp>
#include <orvo_core/parallel.hpp>
#include <orvo_image_processing/local_laplacian.hpp>

#include <algorithm>
#include <cmath>
#include <cstdint>

namespace orvo {
namespace {

constexpr float kMostDetail = 1.0f;   // log2 of the gain of small differences at value 1
constexpr float kNoise = 0.0045f;     // encoded; smaller changes of luminance would raise noise, see cored()
constexpr float kEdge = 0.2f;         // encoded; larger differences are edges and stay unchanged
constexpr int kIntensities = 12;      // closer than kEdge / 2, so that no value is between two of them
constexpr float kShadowGuard = 0.02f; // added to luminance before ratios, so that black gains no colour noise

std::int16_t quantised(float value)
{
    const float limited = value > 0.0f ? std::min(value, 1.0f) : 0.0f; // NaN gives 0
    return static_cast<std::int16_t>(limited * grfx::kGray16White + 0.5f);
}

// The filter's own floor compares with the sampled intensities, whose spacing exceeds the width of noise, so noise is
// suppressed here: the filter adds little to it, but much to structure.
float cored(float change)
{
    const float square = change * change;
    return change * square / (square + kNoise * kNoise);
}

void addToLuminance(PixelRGB<float>& p, float change)
{
    const float y = std::max(luma601(p), 0.0f) + kShadowGuard;
    float factor = std::max((y + change) / y, 0.0f);
    // A channel at the end of its range cannot follow; the others then stay too, to keep the hue.
    const float strongest = std::max({p.r, p.g, p.b});
    if (factor > 1.0f && strongest * factor > 1.0f)
        factor = std::max(1.0f, 1.0f / strongest);
    p.r *= factor;
    p.g *= factor;
    p.b *= factor;
}

} // namespace

void applyDetails(PixelRGB<float>* pixels, int width, int height, float value)
{
    if (pixels == nullptr || width <= 0 || height <= 0 || !(value > 0.0f))
        return;
    const ScopedTimer timer("applyDetails", 0);
    const std::size_t count = static_cast<std::size_t>(width) * static_cast<std::size_t>(height);
    const ManagedPlane<std::int16_t> plane(count);
    forEachRange(count, [&](std::size_t first, std::size_t last) {
        for (std::size_t i = first; i != last; ++i)
            plane[i] = quantised(luma601(pixels[i]));
    });
    grfx::local_laplacian_gray16(plane.data(), width, height, width, kMostDetail * std::min(value, 1.0f), 0.0f,
                                 kIntensities, kEdge, 1.0f);
    forEachRange(count, [&](std::size_t first, std::size_t last) {
        for (std::size_t i = first; i != last; ++i) {
            const float y = luma601(pixels[i]);
            const int change = plane[i] - quantised(y);
            if (change != 0 && std::isfinite(y))
                addToLuminance(pixels[i], cored(static_cast<float>(change) / grfx::kGray16White));
        }
    });
}

} // namespace orvo
