#include "windows.hpp"

#include <scenes/mef_ssim.hpp>

#include <algorithm>
#include <numbers>
#include <numeric>
#include <stdexcept>

namespace orvo::scenes {

namespace {

constexpr double kScaleWeights[] = {0.0448, 0.2856, 0.3001};
constexpr float kC = 0.03f * 0.03f;
constexpr float kLargestPower = 10.0f; // p is unbounded as the structures agree, where it no longer matters
constexpr float kTiny = 1e-9f;         // contrast below which a window has no structure

using Planes = std::vector<std::shared_ptr<Plane>>;

std::shared_ptr<Plane> halved(const Plane& plane)
{
    auto half = std::make_shared<Plane>(_Size<int>(plane.width() / 2, plane.height() / 2), ColorProfileType::None());
    forEachRow(half->height(), [&](int y) {
        const float* top = plane.row(2 * y);
        const float* bottom = plane.row(2 * y + 1);
        for (int x = 0; x < half->width(); ++x)
            half->row(y)[x] = 0.25f * ((top[2 * x] + top[2 * x + 1]) + (bottom[2 * x] + bottom[2 * x + 1]));
    });
    return half;
}

// Second moments of one row of windows: covariances of all pairs of frames, of each frame with the fused picture, and
// its variance. Every vector of the method is a sum of frame patches, so its norms and products follow from these
// without the patches.
class RowMoments
{
public:
    RowMoments(const Planes& frames, const Plane& fused, int y)
        : n(frames.size()), count(static_cast<std::size_t>(fused.width() - kWindowSide + 1)), window(fused.width()),
          means((n + 1) * count), moments((pairs() + n + 1) * count)
    {
        const auto plane = [&](std::size_t i) -> const Plane& { return i < n ? *frames[i] : fused; };
        for (std::size_t i = 0; i <= n; ++i)
            window.mean(plane(i), nullptr, y, std::span(means).subspan(i * count, count));
        for (std::size_t i = 0; i <= n; ++i)
            for (std::size_t j = 0; j <= i; ++j) {
                const auto out = std::span(moments).subspan(index(i, j) * count, count);
                window.mean(plane(i), &plane(j), y, out);
                for (std::size_t x = 0; x < count; ++x)
                    out[x] -= means[i * count + x] * means[j * count + x];
            }
    }

    [[nodiscard]] std::size_t width() const { return count; }
    [[nodiscard]] float of(std::size_t i, std::size_t j, std::size_t x) const
    {
        return moments[(i < j ? index(j, i) : index(i, j)) * count + x];
    }

private:
    [[nodiscard]] std::size_t pairs() const { return n * (n + 1) / 2; }
    [[nodiscard]] static std::size_t index(std::size_t i, std::size_t j) { return i * (i + 1) / 2 + j; }

    std::size_t n;
    std::size_t count;
    WindowRow window;
    std::vector<float> means;
    std::vector<float> moments;
};

// Quality of the window at `x`. `contrast` and `share` have room for one number per frame.
float windowQuality(const RowMoments& m, std::size_t n, std::size_t x, std::span<float> contrast,
                    std::span<float> share)
{
    float strongest = 0.0f;
    float sumOfNorms = 0.0f;
    float normOfSum = 0.0f;
    for (std::size_t i = 0; i < n; ++i) {
        contrast[i] = std::sqrt(std::max(0.0f, m.of(i, i, x)));
        strongest = std::max(strongest, contrast[i]);
        sumOfNorms += contrast[i];
        for (std::size_t j = 0; j < n; ++j)
            normOfSum += m.of(i, j, x);
    }
    const float fusedVariance = std::max(0.0f, m.of(n, n, x));
    if (strongest <= kTiny)
        return kC / (fusedVariance + kC);
    const float consistency = std::clamp(std::sqrt(std::max(0.0f, normOfSum)) / sumOfNorms, 0.0f, 1.0f);
    const float power =
        std::min(kLargestPower, std::tan(0.5f * std::numbers::pi_v<float> * std::min(consistency, 0.9999f)));

    // Weights relative to the strongest frame; a common factor drops out when the structure is normalised.
    for (std::size_t i = 0; i < n; ++i)
        share[i] = contrast[i] > kTiny ? std::pow(contrast[i] / strongest, power) / contrast[i] : 0.0f;
    float structureNorm = 0.0f;
    float withFused = 0.0f;
    for (std::size_t i = 0; i < n; ++i) {
        withFused += share[i] * m.of(i, n, x);
        for (std::size_t j = 0; j < n; ++j)
            structureNorm += share[i] * share[j] * m.of(i, j, x);
    }
    const float wantedVariance = strongest * strongest;
    const float covariance = structureNorm > kTiny ? strongest * withFused / std::sqrt(structureNorm) : 0.0f;
    return (2.0f * covariance + kC) / (wantedVariance + fusedVariance + kC);
}

double scaleQuality(const Planes& frames, const Plane& fused)
{
    const int down = fused.height() - kWindowSide + 1;
    std::vector<double> rows(static_cast<std::size_t>(down));
    forEachRow(down, [&](int y) {
        const RowMoments moments(frames, fused, y);
        std::vector<float> contrast(frames.size());
        std::vector<float> share(frames.size());
        double sum = 0.0;
        for (std::size_t x = 0; x < moments.width(); ++x)
            sum += windowQuality(moments, frames.size(), x, contrast, share);
        rows[static_cast<std::size_t>(y)] = sum / static_cast<double>(moments.width());
    });
    return std::accumulate(rows.begin(), rows.end(), 0.0) / down;
}

} // namespace

double mefSsim(const std::vector<std::shared_ptr<const Picture>>& frames, const Picture& fused)
{
    constexpr int kSmallestSide = kWindowSide << (std::size(kScaleWeights) - 1);
    if (frames.empty())
        throw std::invalid_argument("mefSsim: there are no frames");
    if (std::min(fused.width(), fused.height()) < kSmallestSide)
        throw std::invalid_argument("mefSsim: each side must be at least 44 pixels");
    Planes lumas;
    for (const auto& frame : frames) {
        if (!frame || frame->size() != fused.size())
            throw std::invalid_argument("mefSsim: a frame is empty or differs in size from the fused picture");
        lumas.push_back(lumaOf(*frame));
    }
    std::shared_ptr<Plane> fusedLuma = lumaOf(fused);
    const double weightSum = std::accumulate(std::begin(kScaleWeights), std::end(kScaleWeights), 0.0);
    double quality = 1.0;
    for (std::size_t scale = 0; scale < std::size(kScaleWeights); ++scale) {
        if (scale > 0) {
            for (auto& luma : lumas)
                luma = halved(*luma);
            fusedLuma = halved(*fusedLuma);
        }
        quality *= std::pow(std::max(0.0, scaleQuality(lumas, *fusedLuma)), kScaleWeights[scale] / weightSum);
    }
    return quality;
}

} // namespace orvo::scenes
