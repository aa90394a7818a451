// An editor's session over pictures of one panorama: bench_composer PICTURE...
// Prints one line: seconds to the first underlay, renders per second of a drag at 1500 pixels, seconds of the finished
// picture, its size, and peak memory.
#include <orvo_extensions/panorama_preview_composer.hpp>

#include <sys/resource.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <functional>
#include <future>
#include <thread>
#include <utility>

namespace {

using Clock = std::chrono::steady_clock;

double secondsSince(Clock::time_point start) { return std::chrono::duration<double>(Clock::now() - start).count(); }

double peakMegabytes()
{
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return static_cast<double>(usage.ru_maxrss) / 1024.0;
}

orvo::RenderedData finalized(orvo::PanoramaPreviewComposer& composer,
                             const orvo::PanoramaPreviewComposer::CropInfo& info)
{
    std::promise<orvo::RenderedData> answer;
    composer.finalize(info, [&](orvo::RenderedData data) { answer.set_value(std::move(data)); });
    return answer.get_future().get();
}

// Moves come faster than renders, as from a mouse.
double rendersPerSecond(orvo::PanoramaPreviewComposer& composer)
{
    constexpr double kSeconds = 3.0;
    std::atomic<int> renders = 0;
    composer.setCallback([&](const orvo::RenderedData&) { ++renders; });
    const orvo::_Size<int> canvas = composer.getCanvasSize();
    composer.startFastRender();
    composer.setContext({{1500, 750}, {0, 0, canvas.width, canvas.height}});
    composer.setShiftVector({0.001f, 0.0f});
    (void)finalized(composer, {}); // the first render creates the small sphere
    renders = 0;
    const auto start = Clock::now();
    for (int i = 0; secondsSince(start) < kSeconds; ++i) {
        composer.setShiftVector({0.0002f * static_cast<float>(i % 400), 0.0f});
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    const double rate = renders / secondsSince(start);
    composer.setCallback({});
    composer.setShiftVector({0.0f, 0.0f});
    composer.finishFastRender();
    return rate;
}

} // namespace

int main(int argc, char** argv)
{
    orvo::PanoSource source;
    source.files.assign(argv + 1, argv + argc);
    orvo::PanoramaPreviewComposer composer(source);
    std::promise<bool> loaded;
    std::promise<void> shown;
    std::atomic<bool> isShown = false;
    const auto start = Clock::now();
    composer.setUnderlayCallback([&](const orvo::RenderedData&) {
        if (!isShown.exchange(true))
            shown.set_value();
    });
    composer.loadWithCompletion([&](bool fits, orvo::_Rect<int>) { loaded.set_value(fits); });
    if (!loaded.get_future().get()) {
        std::fputs("bench_composer: the pictures do not fit together\n", stderr);
        return 1;
    }
    const double registered = secondsSince(start);
    shown.get_future().wait();
    const double underlay = secondsSince(start);
    composer.setUnderlayCallback({});
    const double rate = rendersPerSecond(composer);

    std::promise<std::pair<orvo::RenderedData, orvo::_Rect<int>>> proposed;
    const auto cropStart = Clock::now();
    composer.getCropPreview({1500, 750}, [&](orvo::RenderedData data, orvo::_Rect<int> rect) {
        proposed.set_value({std::move(data), rect});
    });
    const auto [preview, rect] = proposed.get_future().get();
    const double crop = secondsSince(cropStart);
    orvo::PanoramaPreviewComposer::CropInfo info;
    info.crop.rect = rect;
    info.context = {preview.image->size(), preview.context.roi};
    const double before = peakMegabytes();
    const auto finishStart = Clock::now();
    const orvo::RenderedData finished = finalized(composer, info);
    std::printf(
        "registered %.2f s, first underlay %.2f s, drag %.1f renders/s, crop preview %.2f s, finalize %.2f s of "
        "%d x %d, peak %.0f MB (%.0f before it)\n",
        registered, underlay, rate, crop, secondsSince(finishStart), finished.image->width(), finished.image->height(),
        peakMegabytes(), before);
    return finished.isPlaceholder ? 1 : 0;
}
