// Shared by the similarity measures: luma, and sums over Gaussian windows.
#pragma once

#include <orvo_core/image_data.hpp>
#include <orvo_core/luma.hpp>
#include <orvo_core/parallel.hpp>
#include <scenes/metrics.hpp>

#include <array>
#include <cmath>
#include <span>
#include <vector>

namespace orvo::scenes {

inline constexpr int kWindowSide = 11;

/// Weights of one axis that sum to 1; the window is their product.
inline std::array<float, kWindowSide> windowWeights()
{
    constexpr double kDeviation = 1.5;
    std::array<double, kWindowSide> exact{};
    double sum = 0.0;
    for (int i = 0; i < kWindowSide; ++i) {
        const double away = i - kWindowSide / 2;
        exact[static_cast<std::size_t>(i)] = std::exp(-away * away / (2.0 * kDeviation * kDeviation));
        sum += exact[static_cast<std::size_t>(i)];
    }
    std::array<float, kWindowSide> weights{};
    for (std::size_t i = 0; i < weights.size(); ++i)
        weights[i] = static_cast<float>(exact[i] / sum);
    return weights;
}

using Plane = _ImageData<float>;

inline std::shared_ptr<Plane> lumaOf(const Picture& picture)
{
    auto luma = std::make_shared<Plane>(picture.size(), ColorProfileType::None());
    forEachRow(picture.height(), [&](int y) {
        for (int x = 0; x < picture.width(); ++x) {
            const auto& p = picture.row(y)[x];
            luma->row(y)[x] = luma601(p);
        }
    });
    return luma;
}

/// Window sums of the products of planes, one row of windows at a time.
class WindowRow
{
public:
    explicit WindowRow(int width) : columns(static_cast<std::size_t>(width)) {}

    /// out[x] = weighted mean of a * b (of a alone if `b` is empty) in the window whose top left is (x, y).
    void mean(const Plane& a, const Plane* b, int y, std::span<float> out)
    {
        std::fill(columns.begin(), columns.end(), 0.0f);
        for (int j = 0; j < kWindowSide; ++j) {
            const float weight = weights[static_cast<std::size_t>(j)];
            const float* ra = a.row(y + j);
            if (b != nullptr) {
                const float* rb = b->row(y + j);
                for (std::size_t x = 0; x < columns.size(); ++x)
                    columns[x] += weight * ra[x] * rb[x];
            } else {
                for (std::size_t x = 0; x < columns.size(); ++x)
                    columns[x] += weight * ra[x];
            }
        }
        std::fill(out.begin(), out.end(), 0.0f);
        for (std::size_t i = 0; i < weights.size(); ++i)
            for (std::size_t x = 0; x < out.size(); ++x)
                out[x] += weights[i] * columns[x + i];
    }

private:
    std::vector<float> columns;
    std::array<float, kWindowSide> weights = windowWeights();
};

} // namespace orvo::scenes
