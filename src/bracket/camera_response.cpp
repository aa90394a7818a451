#include "bracket/camera_response.hpp"

#include <opencv2/core.hpp>

#include <algorithm>
#include <cmath>
#include <optional>

namespace orvo {
namespace {

// The deviation of the logarithm of the light from that of sRGB, at evenly spaced values.
constexpr int kKnots = 25;
constexpr int kMiddleKnot = kKnots / 2; // fixed to sRGB
// Weight of the squared second differences, against data of a weight of 1 in all.
constexpr double kSmoothness = 2e-4;
// Of the deviation itself: decides only where no pixel shows anything.
constexpr double kTowardsSRGB = 1e-6;
constexpr int kRounds = 4;        // of the robust fit
constexpr double kTypical = 0.05; // residuals beyond it, in ln, count less: motion and misalignment
constexpr int kSampleColumns = 200;
constexpr int kSampleRows = 150;
constexpr float kDarkest = 4.0f / 255.0f; // values beyond these are noise or clipped
constexpr float kBrightest = 0.95f;
constexpr float kFlat = 0.08f; // change over two pixels beyond which a misalignment would count
constexpr double kLeastWeight = 50.0;

double lightOfSRGB(double value) { return value <= 0.04045 ? value / 12.92 : std::pow((value + 0.055) / 1.055, 2.4); }

float channelOf(const PixelRGB<float>& pixel, int channel)
{
    return channel == 0 ? pixel.r : channel == 1 ? pixel.g : pixel.b;
}

// One pixel of one frame.
struct Observation
{
    int knot = 0;        // the one below
    double toNext = 0.0; // 0..1
    double offset = 0.0; // ln of the exposure over the light of sRGB
    double weight = 0.0;
};

using Sample = std::vector<Observation>; // the frames that show a pixel

Sample sampleAt(const std::vector<HDRFrame>& frames, const std::vector<double>& exposures, int x, int y, int channel)
{
    Sample sample;
    for (std::size_t i = 0; i < frames.size(); ++i) {
        const auto& image = *frames[i].image;
        const float value = channelOf(image.row(y)[x], channel);
        const bool isFlat =
            std::abs(channelOf(image.row(y)[x + 1], channel) - channelOf(image.row(y)[x - 1], channel)) < kFlat &&
            std::abs(channelOf(image.row(y + 1)[x], channel) - channelOf(image.row(y - 1)[x], channel)) < kFlat;
        if (!(value >= kDarkest && value <= kBrightest) || !isFlat)
            continue;
        const double place = static_cast<double>(value) * (kKnots - 1);
        Observation seen;
        seen.knot = std::min(kKnots - 2, static_cast<int>(place));
        seen.toNext = place - seen.knot;
        seen.offset = std::log(exposures[i]) - std::log(lightOfSRGB(static_cast<double>(value)));
        const double fromMiddle = 2.0 * static_cast<double>(value) - 1.0;
        seen.weight = 1.05 - fromMiddle * fromMiddle; // noise and steps are largest, relatively, at the ends
        sample.push_back(seen);
    }
    return sample;
}

std::vector<Sample> samplesOf(const std::vector<HDRFrame>& frames, const std::vector<double>& exposures, int channel)
{
    const int width = frames.front().image->width();
    const int height = frames.front().image->height();
    std::vector<Sample> samples;
    for (int row = 0; row < kSampleRows; ++row)
        for (int column = 0; column < kSampleColumns; ++column) {
            const int x = static_cast<int>((column + 0.5) * width / kSampleColumns);
            const int y = static_cast<int>((row + 0.5) * height / kSampleRows);
            if (x < 1 || y < 1 || x + 1 >= width || y + 1 >= height)
                continue;
            Sample sample = sampleAt(frames, exposures, x, y, channel);
            if (sample.size() >= 2)
                samples.push_back(std::move(sample));
        }
    return samples;
}

using Knots = std::array<double, kKnots>;

double deviationAt(const Knots& knots, const Observation& seen)
{
    const auto at = static_cast<std::size_t>(seen.knot);
    return knots[at] + (knots[at + 1] - knots[at]) * seen.toNext;
}

// Adds the squares of the differences between the frames of a pixel and their weighted mean, which is the best estimate
// of its light: the light is eliminated from the equations. Returns the weight that it adds.
double addSample(const Sample& sample, const Knots& knots, cv::Mat1d& matrix, cv::Mat1d& right)
{
    double all = 0.0;
    double mean = 0.0;
    for (const Observation& seen : sample) {
        all += seen.weight;
        mean += seen.weight * (deviationAt(knots, seen) - seen.offset);
    }
    mean /= all;
    Knots basis{};
    double offset = 0.0;
    double total = 0.0;
    std::vector<double> weights;
    for (const Observation& seen : sample) {
        const double residual = std::abs(deviationAt(knots, seen) - seen.offset - mean);
        const double weight = seen.weight * (residual > kTypical ? kTypical / residual : 1.0);
        weights.push_back(weight);
        total += weight;
        basis[static_cast<std::size_t>(seen.knot)] += weight * (1.0 - seen.toNext);
        basis[static_cast<std::size_t>(seen.knot) + 1] += weight * seen.toNext;
        offset += weight * seen.offset;
    }
    // sum w (a - mean a)(a - mean a)' = sum w a a' - (sum w a)(sum w a)' / sum w, and the same with the offsets.
    for (std::size_t i = 0; i < sample.size(); ++i) {
        const Observation& seen = sample[i];
        const double parts[2] = {1.0 - seen.toNext, seen.toNext};
        for (int a = 0; a < 2; ++a) {
            for (int b = 0; b < 2; ++b)
                matrix(seen.knot + a, seen.knot + b) += weights[i] * parts[a] * parts[b];
            right(seen.knot + a) += weights[i] * parts[a] * seen.offset;
        }
    }
    for (int a = 0; a < kKnots; ++a) {
        if (basis[static_cast<std::size_t>(a)] == 0.0)
            continue;
        for (int b = 0; b < kKnots; ++b)
            matrix(a, b) -= basis[static_cast<std::size_t>(a)] * basis[static_cast<std::size_t>(b)] / total;
        right(a) -= basis[static_cast<std::size_t>(a)] * offset / total;
    }
    return total;
}

// Empty if there are too few pixels.
std::optional<Knots> fitted(const std::vector<Sample>& samples)
{
    Knots knots{};
    for (int round = 0; round < kRounds; ++round) {
        cv::Mat1d matrix(kKnots, kKnots, 0.0);
        cv::Mat1d right(kKnots, 1, 0.0);
        double weight = 0.0;
        for (const Sample& sample : samples)
            weight += addSample(sample, knots, matrix, right);
        if (weight < kLeastWeight)
            return std::nullopt;
        matrix /= weight;
        right /= weight;
        for (int k = 1; k + 1 < kKnots; ++k) {
            const double second[3] = {1.0, -2.0, 1.0};
            for (int a = 0; a < 3; ++a)
                for (int b = 0; b < 3; ++b)
                    matrix(k - 1 + a, k - 1 + b) += kSmoothness * second[a] * second[b];
        }
        for (int k = 0; k < kKnots; ++k)
            matrix(k, k) += kTowardsSRGB;
        matrix(kMiddleKnot, kMiddleKnot) += 1.0;
        cv::Mat1d solution;
        if (!cv::solve(matrix, right, solution, cv::DECOMP_CHOLESKY))
            return std::nullopt;
        std::copy_n(solution.ptr<double>(), kKnots, knots.begin());
    }
    return knots;
}

} // namespace

template <typename Curve>
CameraResponse::Table CameraResponse::tableOf(const Curve& curve)
{
    Table table;
    for (std::size_t i = 0; i < table.size(); ++i)
        table[i] = static_cast<float>(curve(static_cast<double>(i) / kSteps));
    return table;
}

CameraResponse CameraResponse::linear()
{
    CameraResponse response;
    response.tables.fill(tableOf([](double value) { return value; }));
    return response;
}

CameraResponse CameraResponse::sRGB()
{
    CameraResponse response;
    response.tables.fill(tableOf(lightOfSRGB));
    return response;
}

CameraResponse CameraResponse::estimatedFrom(const std::vector<HDRFrame>& frames, const std::vector<double>& exposures)
{
    CameraResponse response = sRGB();
    for (int channel = 0; channel < kChannels; ++channel) {
        const std::optional<Knots> knots = fitted(samplesOf(frames, exposures, channel));
        if (!knots)
            continue;
        Table& table = response.tables[static_cast<std::size_t>(channel)];
        table = tableOf([&](double value) {
            const double place = value * (kKnots - 1);
            Observation at;
            at.knot = std::min(kKnots - 2, static_cast<int>(place));
            at.toNext = place - at.knot;
            return lightOfSRGB(value) * std::exp(deviationAt(*knots, at));
        });
        for (std::size_t i = 1; i < table.size(); ++i) // more light never gives a smaller value
            table[i] = std::max(table[i], table[i - 1]);
    }
    return response;
}

float CameraResponse::light(int channel, float value) const
{
    const Table& table = tables[static_cast<std::size_t>(channel)];
    const float place = std::clamp(value, 0.0f, 1.0f) * kSteps;
    const auto below = static_cast<std::size_t>(std::min(static_cast<float>(kSteps - 1), place));
    return table[below] + (table[below + 1] - table[below]) * (place - static_cast<float>(below));
}

float CameraResponse::slope(int channel, float value) const
{
    const Table& table = tables[static_cast<std::size_t>(channel)];
    const auto below = static_cast<std::size_t>(std::clamp(value, 0.0f, 1.0f) * (kSteps - 1));
    return (table[below + 1] - table[below]) * kSteps;
}

} // namespace orvo
