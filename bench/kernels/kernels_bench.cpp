// Kernels on planes of 6 and 24 megapixels. Counters: "Mpx/s", and "copies", the time as a multiple of a plain parallel
// copy of the planes that the kernel reads and writes, measured in the same run. Each result is looked at once, so that
// a kernel which does nothing cannot win.
#include <orvo_common/memory_manager.hpp>
#include <orvo_core/parallel.hpp>
#include <orvo_image_processing/auto_exposure.hpp>
#include <orvo_image_processing/exposure_curve.hpp>
#include <orvo_image_processing/fast_blur.hpp>
#include <orvo_image_processing/guided_filter.hpp>
#include <orvo_image_processing/local_laplacian.hpp>

#include <benchmark/benchmark.h>

#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <string>

namespace {

using orvo::ManagedPlane;
using orvo::PixelRGB;

struct Extent
{
    int width, height;
    [[nodiscard]] std::size_t pixels() const
    {
        return static_cast<std::size_t>(width) * static_cast<std::size_t>(height);
    }
};

Extent extentOf(const benchmark::State& state)
{
    return state.range(0) == 24 ? Extent{6000, 4000} : Extent{3000, 2000};
}

/// Slow waves with fine grain, 0.02 .. 0.98.
float sample(std::size_t index, std::size_t width)
{
    const std::size_t x = index % width;
    const std::size_t y = index / width;
    const auto hash = static_cast<std::uint32_t>(index * 2654435761U);
    const float grain = static_cast<float>(hash >> 16) * (0.1f / 65536);
    const float wave = std::sin(static_cast<float>(x) * 0.004f) * std::cos(static_cast<float>(y) * 0.006f);
    return 0.47f + 0.4f * wave + grain;
}

void fill(float* samples, std::size_t count, std::size_t width)
{
    orvo::forEachRange(count, [&](std::size_t first, std::size_t last) {
        for (std::size_t i = first; i < last; ++i)
            samples[i] = sample(i, width);
    });
}

void parallelCopy(void* to, const void* from, std::size_t bytes)
{
    orvo::forEachRange(bytes / 4, [&](std::size_t first, std::size_t last) {
        std::memcpy(static_cast<char*>(to) + 4 * first, static_cast<const char*>(from) + 4 * first, 4 * (last - first));
    });
}

/// Seconds of a copy: the fastest of five, since the first ones wake pages and workers.
double copySeconds(std::size_t bytes)
{
    const ManagedPlane<char> from(bytes, true);
    const ManagedPlane<char> to(bytes, true);
    double best = 1e9;
    for (int i = 0; i < 5; ++i) {
        const auto start = std::chrono::steady_clock::now();
        parallelCopy(to.data(), from.data(), bytes);
        benchmark::DoNotOptimize(to.data()[bytes / 2]);
        best = std::min(best, std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
    }
    return best;
}

/// Runs `body` and tells its rate. `planeBytes` is the size of what it reads, which it also writes.
template <typename Body>
void measure(benchmark::State& state, Extent extent, std::size_t planeBytes, const Body& body)
{
    const double copy = copySeconds(planeBytes);
    double seconds = 0.0;
    for (auto _ : state) {
        const auto start = std::chrono::steady_clock::now();
        body();
        const double taken = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        state.SetIterationTime(taken);
        seconds += taken;
    }
    const auto rounds = static_cast<double>(state.iterations());
    state.counters["Mpx/s"] = static_cast<double>(extent.pixels()) * rounds / seconds * 1e-6;
    state.counters["copies"] = seconds / rounds / copy;
}

void require(benchmark::State& state, bool sane)
{
    if (!sane)
        state.SkipWithError("the result is not what the kernel promises");
}

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
    // Always from the same picture: repeated smoothing would end in a flat one. The copy is a hundredth of the time.
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
    // In place, over and over: the time does not depend on the values.
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

} // namespace
