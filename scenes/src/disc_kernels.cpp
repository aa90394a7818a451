#include "disc_kernels.hpp"

#include <algorithm>
#include <cmath>
#include <cstddef>

namespace orvo::scenes {

namespace {

double rimWeight(double made, int x, int y) { return std::clamp(made + 0.5 - std::hypot(x, y), 0.0, 1.0); }

// Second moment along one axis of the weights of a disc constructed with the radius `made`.
double momentOf(double made)
{
    const int reach = static_cast<int>(made + 0.5);
    double sum = 0.0;
    double moment = 0.0;
    for (int y = -reach; y <= reach; ++y)
        for (int x = -reach; x <= reach; ++x) {
            const double weight = rimWeight(made, x, y);
            sum += weight;
            moment += weight * x * x;
        }
    return moment / sum;
}

// The construction radius that gives a disc the moment of the true disc of `radius`.
double madeRadius(double radius)
{
    const double target = radius * radius / 4.0;
    double low = 0.5; // only the middle pixel
    double high = radius + 1.0;
    constexpr int kHalvings = 24; // far below the step between two discs
    for (int i = 0; i < kHalvings; ++i) {
        const double middle = 0.5 * (low + high);
        (momentOf(middle) < target ? low : high) = middle;
    }
    return 0.5 * (low + high);
}

} // namespace

DiscKernels::Disc DiscKernels::discOf(double radius)
{
    const double made = madeRadius(radius);
    Disc disc;
    disc.reach = static_cast<int>(made + 0.5);
    double sum = 0.0;
    std::vector<double> exact;
    for (int y = -disc.reach; y <= disc.reach; ++y) {
        int half = disc.reach;
        while (half > 0 && !(rimWeight(made, half, y) > 0.0))
            --half;
        disc.halfWidths.push_back(half);
        for (int x = -half; x <= half; ++x) {
            exact.push_back(rimWeight(made, x, y));
            sum += exact.back();
        }
    }
    for (const double weight : exact)
        disc.weights.push_back(static_cast<float>(weight / sum));
    return disc;
}

DiscKernels::DiscKernels(double largestRadius)
{
    discs.push_back({0, {0}, {1.0f}}); // in focus: the sample itself
    const int steps = static_cast<int>(std::ceil(std::max(largestRadius, 0.0) * static_cast<double>(kStepsPerPixel)));
    for (int step = 1; step <= steps; ++step)
        discs.push_back(discOf(step / static_cast<double>(kStepsPerPixel)));
}

const DiscKernels::Disc& DiscKernels::nearest(float radius) const
{
    const auto index = static_cast<std::size_t>(std::max(radius, 0.0f) * kStepsPerPixel + 0.5f);
    return discs[std::min(index, discs.size() - 1)];
}

PixelRGBA<float> DiscKernels::mean(const PixelRGBA<float>* middle, int stride, float radius) const
{
    const Disc& disc = nearest(radius);
    if (disc.reach == 0)
        return *middle;
    const float* weight = disc.weights.data();
    float sum[4] = {};
    for (int y = -disc.reach; y <= disc.reach; ++y) {
        const int half = disc.halfWidths[static_cast<std::size_t>(y + disc.reach)];
        const float* sample = &(middle + static_cast<std::ptrdiff_t>(y) * stride - half)->r;
        for (int x = -half; x <= half; ++x, ++weight, sample += 4)
            for (int k = 0; k < 4; ++k)
                sum[k] += *weight * sample[k];
    }
    return {sum[0], sum[1], sum[2], sum[3]};
}

float DiscKernels::weight(float radius, int x, int y) const
{
    const Disc& disc = nearest(radius);
    const float* row = disc.weights.data();
    for (int line = -disc.reach; line <= disc.reach; ++line) {
        const int half = disc.halfWidths[static_cast<std::size_t>(line + disc.reach)];
        if (line == y)
            return std::abs(x) <= half ? row[x + half] : 0.0f;
        row += 2 * half + 1;
    }
    return 0.0f;
}

} // namespace orvo::scenes
