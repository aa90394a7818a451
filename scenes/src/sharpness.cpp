#include "windows.hpp"

#include <orvo_core/parallel.hpp>
#include <scenes/sharpness.hpp>

#include <algorithm>
#include <cmath>
#include <numbers>
#include <stdexcept>
#include <string>

namespace orvo::scenes {

namespace {

constexpr int kLongestStep = 64;
constexpr int kLargestWindow = 127;

void check(const Picture& picture, int step, int window)
{
    if (picture.width() < 1 || picture.height() < 1)
        throw std::invalid_argument("sumModifiedLaplacian: the picture is empty");
    if (step < 1 || step > kLongestStep)
        throw std::invalid_argument("sumModifiedLaplacian: the step is " + std::to_string(step) + ", allowed is 1..64");
    if (window < 1 || window > kLargestWindow || window % 2 == 0)
        throw std::invalid_argument("sumModifiedLaplacian: the window is " + std::to_string(window) +
                                    ", allowed is an odd number 1..127");
}

std::shared_ptr<Plane> modifiedLaplacian(const Plane& luma, int step)
{
    auto result = std::make_shared<Plane>(luma.size(), ColorProfileType::None());
    const int lastX = luma.width() - 1;
    const int lastY = luma.height() - 1;
    const auto measureRow = [&](int y) {
        const float* row = luma.row(y);
        const float* above = luma.row(std::max(y - step, 0));
        const float* below = luma.row(std::min(y + step, lastY));
        for (int x = 0; x <= lastX; ++x) {
            const float twice = 2.0f * row[x];
            result->row(y)[x] = std::abs(twice - row[std::max(x - step, 0)] - row[std::min(x + step, lastX)]) +
                                std::abs(twice - above[x] - below[x]);
        }
    };
    forEachRow(luma.height(), measureRow);
    return result;
}

} // namespace

std::shared_ptr<_ImageData<float>> sumModifiedLaplacian(const Picture& picture, int step, int window)
{
    check(picture, step, window);
    const auto single = modifiedLaplacian(*lumaOf(picture), step);
    auto result = std::make_shared<Plane>(picture.size(), ColorProfileType::None());
    const int reach = window / 2;
    const int lastX = picture.width() - 1;
    const int lastY = picture.height() - 1;
    // Sums start from zero for each pixel instead of running, so they are exact to rounding, and flat pixels are 0.
    const auto sumRow = [&](int y) {
        std::vector<float> columns(static_cast<std::size_t>(lastX) + 1, 0.0f);
        for (int j = y - reach; j <= y + reach; ++j) {
            const float* row = single->row(std::clamp(j, 0, lastY));
            for (std::size_t x = 0; x < columns.size(); ++x)
                columns[x] += row[x];
        }
        for (int x = 0; x <= lastX; ++x) {
            float sum = 0.0f;
            for (int i = x - reach; i <= x + reach; ++i)
                sum += columns[static_cast<std::size_t>(std::clamp(i, 0, lastX))];
            result->row(y)[x] = sum;
        }
    };
    forEachRow(picture.height(), sumRow);
    return result;
}

double sharpnessRatio(const Picture& result, const std::vector<std::shared_ptr<const Picture>>& inputs,
                      const SharpnessSettings& settings)
{
    if (inputs.empty())
        throw std::invalid_argument("sharpnessRatio: there are no inputs");
    if (!(settings.noise >= 0.0))
        throw std::invalid_argument("SharpnessSettings.noise is " + std::to_string(settings.noise) +
                                    ", it must not be below 0");
    std::shared_ptr<Plane> best;
    for (const auto& input : inputs) {
        if (!input || input->size() != result.size())
            throw std::invalid_argument("sharpnessRatio: the inputs must have the size of the result");
        auto measure = sumModifiedLaplacian(*input, settings.step, settings.window);
        if (!best) {
            best = std::move(measure);
            continue;
        }
        forEachRange(best->pixelCount(), [&](std::size_t first, std::size_t last) {
            for (std::size_t i = first; i < last; ++i)
                best->data()[i] = std::max(best->data()[i], measure->data()[i]);
        });
    }
    const auto found = sumModifiedLaplacian(result, settings.step, settings.window);

    // 2a - b - c of noise has sqrt(6) times its deviation, and the mean distance of a normal number from 0 is
    // sqrt(2/pi) deviations; there are two such terms in each of the window's pixels.
    constexpr double kTimesNoise = 2.0;
    const double ofNoise = settings.noise * 2.0 * std::sqrt(6.0) * std::sqrt(2.0 / std::numbers::pi) *
                           static_cast<double>(settings.window) * settings.window;
    const auto threshold = static_cast<float>(kTimesNoise * ofNoise);
    double sumFound = 0.0;
    double sumBest = 0.0;
    for (std::size_t i = 0; i < best->pixelCount(); ++i) {
        if (!(best->data()[i] > threshold))
            continue;
        sumFound += static_cast<double>(found->data()[i]);
        sumBest += static_cast<double>(best->data()[i]);
    }
    return sumBest > 0.0 ? sumFound / sumBest : 1.0;
}

} // namespace orvo::scenes
