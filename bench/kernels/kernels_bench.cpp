// Filters on planes of 6 and 24 megapixels. Each result is checked once, so that a kernel that does nothing cannot win.
#include "measure.hpp"

#include <orvo_image_processing/auto_exposure.hpp>
#include <orvo_image_processing/exposure_curve.hpp>
#include <orvo_image_processing/fast_blur.hpp>
#include <orvo_image_processing/focus_stacking.hpp>
#include <orvo_image_processing/guided_filter.hpp>
#include <orvo_image_processing/local_laplacian.hpp>

#include <cmath>
#include <cstdint>
#include <cstring>

namespace {

using namespace orvo::bench;
using orvo::ManagedPlane;
using orvo::PixelRGB;

void guidedFilter(benchmark::State& state)
{
    const Extent extent = extentOf(state);
    const ManagedPlane<PixelRGB<float>> source(extent.pixels());
    const ManagedPlane<PixelRGB<float>> target(extent.pixels());
    fill(&source[0].r, 3 * extent.pixels(), 3 * static_cast<std::size_t>(extent.width));
    measure(state, extent, 12 * extent.pixels(), [&] {
        orvo::grfx_guided_filter_rgb_fast(source.data(), target.data(), extent.width, extent.height,
                                          static_cast<float>(state.range(1)), 0.2f);
    });
    const std::size_t middle = extent.pixels() / 2 + static_cast<std::size_t>(extent.width) / 2;
    require(state, std::abs(target[middle].g - source[middle].g) < 0.3f && target[middle].g != source[middle].g);
}
BENCHMARK(guidedFilter)->ArgsProduct({{6, 24}, {30, 200}})->UseManualTime()->Unit(benchmark::kMillisecond);

void localLaplacian(benchmark::State& state)
{
    const Extent extent = extentOf(state);
    const ManagedPlane<std::int16_t> original(extent.pixels());
    const ManagedPlane<std::int16_t> data(extent.pixels());
    for (std::size_t i = 0; i < extent.pixels(); ++i)
        original[i] = static_cast<std::int16_t>(sample(i, static_cast<std::size_t>(extent.width)) * 32767.0f);
    // Always from the same picture: repeated smoothing would make it flat. The copy takes a hundredth of the time.
    measure(state, extent, 2 * extent.pixels(), [&] {
        std::memcpy(data.data(), original.data(), 2 * extent.pixels());
        orvo::grfx::local_laplacian_gray16(data.data(), extent.width, extent.height, extent.width, -2.0f, 0.0f, 9, 0.5f,
                                           0.5f);
    });
    const std::size_t middle = extent.pixels() / 2;
    require(state, data[middle] != original[middle] && std::abs(data[middle] - original[middle]) < 16000);
}
BENCHMARK(localLaplacian)->Arg(6)->Arg(24)->UseManualTime()->Unit(benchmark::kMillisecond);

void blur(benchmark::State& state)
{
    const Extent extent = extentOf(state);
    const ManagedPlane<float> source(extent.pixels());
    const ManagedPlane<float> target(extent.pixels());
    fill(source.data(), extent.pixels(), static_cast<std::size_t>(extent.width));
    measure(state, extent, 4 * extent.pixels(), [&] {
        orvo::grfx_fast_blur_gray(target.data(), source.data(), extent.width, extent.height,
                                  static_cast<int>(state.range(1)));
    });
    const std::size_t middle = extent.pixels() / 2;
    require(state, std::abs(target[middle] - source[middle]) < 0.3f && target[middle] != source[middle]);
}
BENCHMARK(blur)->ArgsProduct({{6, 24}, {1, 10, 200}})->UseManualTime()->Unit(benchmark::kMillisecond);

void exposureCurve(benchmark::State& state)
{
    const Extent extent = extentOf(state);
    const ManagedPlane<float> samples(3 * extent.pixels());
    const float a = 1.0f + 0.1f * static_cast<float>(state.range(1));
    fill(samples.data(), 3 * extent.pixels(), 3 * static_cast<std::size_t>(extent.width));
    // In place, repeatedly: the time does not depend on the values.
    measure(state, extent, 12 * extent.pixels(),
            [&] { orvo::applyExposureInPlace(samples.data(), 3 * extent.pixels(), a, 0.9f, 0.5f); });
    require(state, std::isfinite(samples[0]) && samples[0] != sample(0, 1));
}
BENCHMARK(exposureCurve)->ArgsProduct({{6, 24}, {-2, 2}})->UseManualTime()->Unit(benchmark::kMillisecond);

void autoExposureEstimate(benchmark::State& state)
{
    const Extent extent = extentOf(state);
    const ManagedPlane<float> a(3 * extent.pixels());
    const ManagedPlane<float> b(3 * extent.pixels());
    fill(a.data(), 3 * extent.pixels(), 3 * static_cast<std::size_t>(extent.width));
    parallelCopy(b.data(), a.data(), 12 * extent.pixels());
    orvo::applyExposureInPlace(b.data(), 3 * extent.pixels(), 0.8f, 0.9f, 0.5f);
    orvo::auto_exposure_data_t data;
    measure(state, extent, 12 * extent.pixels(),
            [&] { orvo::autoExposureEstimateRGB(a.data(), b.data(), extent.width, extent.height, data, 7); });
    require(state, std::abs(data.expV - 1.2f) < 0.01f);
}
BENCHMARK(autoExposureEstimate)->Arg(6)->Arg(24)->UseManualTime()->Unit(benchmark::kMillisecond);

void autoExposureApply(benchmark::State& state)
{
    const Extent extent = extentOf(state);
    const ManagedPlane<float> a(3 * extent.pixels());
    const ManagedPlane<float> b(3 * extent.pixels());
    fill(a.data(), 3 * extent.pixels(), 3 * static_cast<std::size_t>(extent.width));
    parallelCopy(b.data(), a.data(), 12 * extent.pixels());
    orvo::applyExposureInPlace(b.data(), 3 * extent.pixels(), 0.9f, 0.9f, 0.5f);
    orvo::auto_exposure_data_t data;
    orvo::autoExposureEstimateRGB(a.data(), b.data(), extent.width, extent.height, data, 7);
    measure(state, extent, 12 * extent.pixels(),
            [&] { orvo::autoExposureApplyRGB(a.data(), b.data(), extent.width, extent.height, data); });
    require(state, data.curves[0].knots > 0 && std::isfinite(b[0]));
}
BENCHMARK(autoExposureApply)->Arg(6)->Arg(24)->UseManualTime()->Unit(benchmark::kMillisecond);

/// Two frames, each with its grain in one half, and the result: the cost of a series of two.
void focusStack(benchmark::State& state)
{
    const Extent extent = extentOf(state);
    const ManagedPlane<PixelRGB<float>> left(extent.pixels());
    const ManagedPlane<PixelRGB<float>> right(extent.pixels());
    const ManagedPlane<PixelRGB<float>> target(extent.pixels());
    const auto width = static_cast<std::size_t>(extent.width);
    orvo::forEachRow(extent.height, [&](int y) {
        for (std::size_t x = 0; x < width; ++x) {
            const std::size_t i = static_cast<std::size_t>(y) * width + x;
            const float grain = sample(i, width);
            const float smooth =
                0.25f * (sample(i, width) + sample(i + 1, width) + sample(i + 2, width) + sample(i + 3, width));
            left[i] = x < width / 2 ? PixelRGB<float>{grain, grain, grain} : PixelRGB<float>{smooth, smooth, smooth};
            right[i] = x < width / 2 ? PixelRGB<float>{smooth, smooth, smooth} : PixelRGB<float>{grain, grain, grain};
        }
    });
    const auto stacker = grfx::produceLaplacianFocusStacking<PixelRGB<float>>(extent.width, extent.height, 8.0f, 8,
                                                                              grfx::ESample::Float);
    measure(state, extent, 24 * extent.pixels(), [&] {
        stacker->reset();
        stacker->addFrame(left.data(), extent.width, extent.height, 0);
        stacker->addFrame(right.data(), extent.width, extent.height, 0);
        stacker->getResult(target.data(), extent.width, extent.height);
    });
    const std::size_t middle = extent.pixels() / 2;
    const auto near = [&](std::size_t i) { return std::abs(target[i].g - sample(i, width)) < 1e-3f; };
    require(state, near(middle + width / 4) && near(middle + width * 3 / 4));
}
BENCHMARK(focusStack)->Arg(6)->Arg(24)->UseManualTime()->Unit(benchmark::kMillisecond);

} // namespace
