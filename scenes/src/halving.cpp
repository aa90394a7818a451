#include <scenes/halving.hpp>

#include <algorithm>
#include <cmath>
#include <functional>
#include <numbers>

namespace orvo::scenes {
namespace {

using Picture = _ImageData<PixelRGB<float>>;
using Kernel = std::function<double(double)>;

// The cubic kernels of Keys: -0.5 is Catmull-Rom's.
Kernel cubic(double sharpness)
{
    return [sharpness](double x) {
        if (x < 1.0)
            return ((sharpness + 2.0) * x - (sharpness + 3.0)) * x * x + 1.0;
        return x < 2.0 ? sharpness * (((x - 5.0) * x + 8.0) * x - 4.0) : 0.0;
    };
}

Kernel lanczos(int lobes)
{
    return [lobes](double x) {
        const auto sinc = [](double v) { return std::sin(std::numbers::pi * v) / (std::numbers::pi * v); };
        return x < lobes ? sinc(x) * sinc(x / lobes) : 0.0;
    };
}

// The weights of `kernel`, which reaches `radius` samples of the picture it is stretched over.
std::vector<double> tapsOf(const Kernel& kernel, int radius, int stretch)
{
    std::vector<double> taps;
    double sum = 0.0;
    for (int i = 0; i < radius * stretch; ++i) {
        taps.push_back(kernel((i + 0.5) / stretch));
        sum += taps.back();
    }
    for (double& tap : taps)
        tap /= 2.0 * sum;
    return taps;
}

// The new sample at `index` of a line of `count` samples, `value(i)`, for one channel.
template <typename Value>
double halvedAt(const std::vector<double>& taps, int index, int count, const Value& value)
{
    double sum = 0.0;
    for (std::size_t i = 0; i < taps.size(); ++i) {
        const int reach = static_cast<int>(i);
        sum += taps[i] * (static_cast<double>(value(std::max(2 * index - reach, 0))) +
                          static_cast<double>(value(std::min(2 * index + 1 + reach, count - 1))));
    }
    return sum;
}

float rounded(float v) { return std::round(std::clamp(v, 0.0f, 1.0f) * 255.0f) / 255.0f; }

} // namespace

const std::vector<Halving>& halvings()
{
    static const std::vector<Halving> all = {
        {"area", {0.5}, false},
        {"cubic", tapsOf(cubic(-0.5), 2, 2), false},
        {"Lanczos 3", tapsOf(lanczos(3), 3, 2), false},
        {"plain cubic", tapsOf(cubic(-0.75), 2, 1), true},
        {"plain Lanczos 4", tapsOf(lanczos(4), 4, 1), true},
    };
    return all;
}

std::shared_ptr<Picture> halved(const Picture& picture, const Halving& halving)
{
    const _Size<int> size(picture.width() / 2, picture.height() / 2);
    Picture across({size.width, picture.height()}, picture.colorProfile());
    auto result = std::make_shared<Picture>(size, picture.colorProfile());
    for (const auto channel : {&PixelRGB<float>::r, &PixelRGB<float>::g, &PixelRGB<float>::b}) {
        for (int y = 0; y < picture.height(); ++y)
            for (int x = 0; x < size.width; ++x)
                across.row(y)[x].*channel = static_cast<float>(
                    halvedAt(halving.taps, x, picture.width(), [&](int i) { return picture.row(y)[i].*channel; }));
        for (int y = 0; y < size.height; ++y)
            for (int x = 0; x < size.width; ++x)
                result->row(y)[x].*channel = rounded(static_cast<float>(
                    halvedAt(halving.taps, y, picture.height(), [&](int i) { return across.row(i)[x].*channel; })));
    }
    return result;
}

} // namespace orvo::scenes
