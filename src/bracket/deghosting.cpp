#include "bracket/deghosting.hpp"

#include <orvo_common/memory_manager.hpp>
#include <orvo_core/parallel.hpp>
#include <orvo_image_processing/auto_exposure.hpp>
#include <orvo_image_processing/fast_blur.hpp>
#include <orvo_image_processing/guided_filter.hpp>
#include <orvo_logger/logstream.hpp>

#include <algorithm>
#include <cmath>
#include <cstring>

namespace orvo {
namespace {

// Sensitivity = amount * kSensitivityStep * kSensitivitySpan + kLowestSensitivity: 0.75 to 2.5 for amounts 0 to 4.
constexpr float kSensitivityStep = 0.25f;
constexpr float kSensitivitySpan = 1.75f;
constexpr float kLowestSensitivity = 0.75f;

// Fine structure is what a guided filter of a thirtieth of the width takes away.
constexpr int kWidthsPerRadius = 30;
constexpr float kGuidedEps = 0.2f;

// A reference brighter than this on the mean of its channels, of 255, is blown out and shows no structure to compare.
constexpr float kBlownOut = 245.0f;

// The curve from a difference of structure to a mark.
constexpr float kMarkContrast = 3.0f;

// Growing: so many blurs of this radius, each followed by the hard core at full strength.
constexpr int kGrowRadius = 10;
constexpr int kGrowPasses = 25;
constexpr float kMaskSteps = 255.0f; // the mask is held to 8-bit steps

// The mask is a little stronger than grown, so that its inner slope is solid.
constexpr float kMaskGain = 1.2f;
constexpr float kBrightest = 2.0f;

// Exposure maps by channel.
constexpr int kByChannel = 7;

using Pixel = PixelRGB<float>;

struct Size
{
    int width;
    int height;
    [[nodiscard]] std::size_t pixels() const
    {
        return static_cast<std::size_t>(width) * static_cast<std::size_t>(height);
    }
};

void copyPixels(Pixel* target, const Pixel* source, std::size_t count)
{
    forEachRange(count, [&](std::size_t first, std::size_t last) {
        std::memcpy(target + first, source + first, (last - first) * sizeof(Pixel));
    });
}

// What the guided filter takes away, limited to 0..1 by channel and summed. `smooth` is scratch.
void measureStructure(const Pixel* picture, Pixel* smooth, float* structure, Size size)
{
    const int wholeRadius = size.width / kWidthsPerRadius; // truncated
    const auto radius = static_cast<float>(wholeRadius);
    grfx_guided_filter_rgb_fast(picture, smooth, size.width, size.height, radius, kGuidedEps);
    forEachRange(size.pixels(), [&](std::size_t first, std::size_t last) {
        for (std::size_t p = first; p < last; ++p) {
            const Pixel& v = picture[p];
            const Pixel& s = smooth[p];
            const Pixel limited = clampValue(Pixel{std::abs(v.r - s.r), std::abs(v.g - s.g), std::abs(v.b - s.b)});
            structure[p] = limited.r + limited.g + limited.b;
        }
    });
}

// `a` and `b` are the structure of the frame and of the reference at its exposure.
void markDifferences(const float* a, const float* b, const Pixel* reference, float* ghostMask, float sensitivity,
                     std::size_t count)
{
    forEachRange(count, [&](std::size_t first, std::size_t last) {
        for (std::size_t p = first; p < last; ++p) {
            const Pixel& ref = reference[p];
            if (!((ref.r + ref.g + ref.b) / 3.0f * 255.0f < kBlownOut))
                continue;
            float d = std::abs(a[p] - b[p]);
            d = (d + d) * sensitivity;
            const float v = (std::clamp(d, 0.0f, 1.0f) - 0.5f) * kMarkContrast * sensitivity + 0.5f;
            if (v > 0.0f)
                ghostMask[p] = 1.0f;
        }
    });
}

float inMaskSteps(float v) { return static_cast<float>(static_cast<int>(v * kMaskSteps)) / kMaskSteps; }

// Each pass puts the hard core back before the next blur, so the edge spreads outward while the core stays solid.
void growMask(const float* ghostMask, float* soft, float* softBlur, Size size)
{
    const std::size_t count = size.pixels();
    grfx_fast_blur_gray(softBlur, ghostMask, size.width, size.height, kGrowRadius);
    for (int pass = 0; pass < kGrowPasses; ++pass) {
        forEachRange(count, [&](std::size_t first, std::size_t last) {
            for (std::size_t p = first; p < last; ++p)
                soft[p] = inMaskSteps(std::max(std::clamp(ghostMask[p], 0.0f, 1.0f), inMaskSteps(softBlur[p])));
        });
        grfx_fast_blur_gray(softBlur, soft, size.width, size.height, kGrowRadius);
    }
    forEachRange(count, [&](std::size_t first, std::size_t last) {
        for (std::size_t p = first; p < last; ++p)
            soft[p] = inMaskSteps(softBlur[p]);
    });
}

void mixIn(Pixel* frame, const Pixel* replacement, const float* soft, std::size_t count)
{
    const auto mixed = [](float value, float wanted, float m) {
        const float v = value + (wanted - value) * m;
        return v >= kBrightest ? kBrightest : (v > 0.0f ? v : 0.0f);
    };
    forEachRange(count, [&](std::size_t first, std::size_t last) {
        for (std::size_t p = first; p < last; ++p) {
            const float m = std::clamp(soft[p] * kMaskGain, 0.0f, 1.0f);
            frame[p] = {mixed(frame[p].r, replacement[p].r, m), mixed(frame[p].g, replacement[p].g, m),
                        mixed(frame[p].b, replacement[p].b, m)};
        }
    });
}

} // namespace

template <typename Frame>
void processDeghosting(std::vector<Frame>& frames, DeghostAmount amount, int referenceIndex)
{
    const Size size{frames[0].image->width(), frames[0].image->height()};
    LOG(__orvolog() << "[Deghosting] " << size.width << "x" << size.height << " refIdx: " << referenceIndex
                    << "deghostAmount: " << static_cast<int>(amount));
    const float sensitivity =
        static_cast<float>(static_cast<int>(amount)) * kSensitivityStep * kSensitivitySpan + kLowestSensitivity;
    const std::size_t count = size.pixels();
    if (count == 0)
        return;
    const Pixel* const reference = frames[static_cast<std::size_t>(referenceIndex)].image->data();
    const ManagedPlane<float> ghostMask(count, true);
    const ManagedPlane<Pixel> b(count);
    // Structure while frames are compared, the mask while it grows: never both.
    const ManagedPlane<float> soft(count);
    const ManagedPlane<float> softBlur(count);
    std::vector<auto_exposure_data_t> exposureMaps(frames.size());

    for (std::size_t i = 0; i < frames.size(); ++i) {
        const Pixel* const frame = frames[i].image->data();
        copyPixels(b.data(), reference, count);
        autoExposureEstimateRGB(frame, reference, size.width, size.height, exposureMaps[i], kByChannel);
        autoExposureApplyRGB(frame, b.data(), size.width, size.height, exposureMaps[i]);
        const ManagedPlane<Pixel> c(count);
        measureStructure(frame, c.data(), soft.data(), size);
        measureStructure(b.data(), c.data(), softBlur.data(), size);
        markDifferences(soft.data(), softBlur.data(), reference, ghostMask.data(), sensitivity, count);
    }

    growMask(ghostMask.data(), soft.data(), softBlur.data(), size);

    for (std::size_t i = 0; i < frames.size(); ++i) {
        if (static_cast<int>(i) == referenceIndex)
            continue;
        copyPixels(b.data(), reference, count);
        autoExposureApplyRGB(frames[i].image->data(), b.data(), size.width, size.height, exposureMaps[i]);
        mixIn(frames[i].image->data(), b.data(), soft.data(), count);
    }
}

template void processDeghosting<HDRFrame>(std::vector<HDRFrame>&, DeghostAmount, int);
template void processDeghosting<FocusStackerFrame>(std::vector<FocusStackerFrame>&, DeghostAmount, int);

} // namespace orvo
