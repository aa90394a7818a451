#include "restoration/blur_reduction.hpp"

#include "faces/face_restoration.hpp"

#include <orvo_common/failure.hpp>
#include <orvo_core/parallel.hpp>

#include <opencv2/core.hpp>

#include <algorithm>
#include <cmath>

namespace orvo::details {
namespace {

using Pixel = PixelRGB<float>;
using Picture = _ImageData<Pixel>;

constexpr double kSharpBlur = 0.65;  // px: the pixels of a camera blur this much on their own, so nothing is removed
constexpr double kClearBlur = 1.0;   // px: removed in full from here on
constexpr double kWidestBlur = 2.0;  // px: detail beyond it is lost, and would be invented
constexpr double kNoiseLimit = 0.02; // noise that halves the strength
constexpr int kTile = 1024;
constexpr int kContext = 48;          // pixels of context around a tile: many times the widest blur
constexpr float kShadowGuard = 0.02f; // added to luminance before ratios, so that black does not gain colour noise

float luminanceOf(const Pixel& p) { return 0.299f * p.r + 0.587f * p.g + 0.114f * p.b; }

double smoothStep(double low, double high, double v)
{
    const double t = std::clamp((v - low) / (high - low), 0.0, 1.0);
    return t * t * (3.0 - 2.0 * t);
}

/// `p` with `change` added to the luminance, by the same gain on all channels.
Pixel raised(const Pixel& p, float change)
{
    const float y = std::max(luminanceOf(p), 0.0f) + kShadowGuard;
    float factor = std::max((y + change) / y, 0.0f);
    // A channel at its limit cannot follow, so the others stop too, which keeps the hue.
    const float strongest = std::max({p.r, p.g, p.b});
    if (factor > 1.0f && strongest * factor > 1.0f)
        factor = std::max(1.0f, 1.0f / strongest);
    return {p.r * factor, p.g * factor, p.b * factor};
}

/// Fills `plane` with the luminance from `corner` on; the picture is mirrored beyond its borders.
void readLuminance(const Picture& picture, cv::Point corner, const FacePlane& plane)
{
    const auto inside = [](int position, int length) {
        return cv::borderInterpolate(position, length, cv::BORDER_REFLECT);
    };
    forEachRow(plane.size().height, [&](int y) {
        const Pixel* const from = picture.row(inside(corner.y + y, picture.height()));
        float* const to = plane.row(y);
        for (int x = 0; x < plane.size().width; ++x)
            to[x] = luminanceOf(from[inside(corner.x + x, picture.width())]);
    });
}

} // namespace

void reduceBlur(Picture& picture, float amount, const Step& step)
{
    step.goOn(0.0);
    const FacePlane before(cv::Size(picture.width(), picture.height()));
    readLuminance(picture, {0, 0}, before);
    const double noise = measuredNoise(before.mat());
    const double measured = measuredBlur(before.mat(), noise);
    const double noisy = noise / kNoiseLimit;
    const double strength = amount * smoothStep(kSharpBlur, kClearBlur, measured) / (1.0 + noisy * noisy);
    if (!(strength > 0.0))
        return;
    const double blur = std::min(measured, kWidestBlur);

    const int across = (picture.width() + kTile - 1) / kTile;
    const int down = (picture.height() + kTile - 1) / kTile;
    for (int tile = 0; tile < across * down; ++tile) {
        step.goOn(0.2 + 0.8 * tile / (across * down));
        const cv::Rect own = cv::Rect(tile % across * kTile, tile / across * kTile, kTile, kTile) &
                             cv::Rect(0, 0, picture.width(), picture.height());
        const FacePlane change(transformSize({own.width + 2 * kContext, own.height + 2 * kContext}));
        const FacePlane contrast(change.size());
        // Reads the original luminance: finished tiles must not appear in the context of the next.
        forEachRow(change.size().height, [&](int y) {
            const int row = cv::borderInterpolate(own.y - kContext + y, picture.height(), cv::BORDER_REFLECT);
            for (int x = 0; x < change.size().width; ++x)
                change.row(y)[x] =
                    before.row(row)[cv::borderInterpolate(own.x - kContext + x, picture.width(), cv::BORDER_REFLECT)];
        });
        if (!lostDetail(change, contrast, blur, noise, step.control()))
            throw FailureError(cancelledFailure());
        forEachRow(own.height, [&](int y) {
            const float* const lost = change.row(y + kContext) + kContext;
            Pixel* const out = picture.row(own.y + y) + own.x;
            for (int x = 0; x < own.width; ++x)
                out[x] = raised(out[x], static_cast<float>(strength) * lost[x]);
        });
    }
}

} // namespace orvo::details
