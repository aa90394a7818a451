// What an editor waits for while its user works with a generative tool, on a picture of 24 megapixels.
#include "measure.hpp"

#include <orvo_extensions/generative_erase.hpp>
#include <orvo_extensions/generative_expand.hpp>
#include <orvo_extensions/generative_restoration.hpp>
#include <orvo_io/base64_image.hpp>

#include <chrono>
#include <cmath>
#include <condition_variable>
#include <filesystem>
#include <future>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace {

using namespace orvo::bench;
using orvo::GenerativeProcessorBase;
using Picture = orvo::_ImageData<orvo::PixelRGB<float>>;
using Rect = orvo::_Rect<int>;
using Size = orvo::_Size<int>;

constexpr Size kPicture = {6000, 4000};
constexpr Size kView = {1500, 1000};
constexpr Rect kWhole = {0, 0, kPicture.width, kPicture.height};
constexpr Rect kZoomed = {2000, 1500, kView.width, kView.height}; // a pixel for a pixel

std::shared_ptr<const Picture> photograph()
{
    static const auto picture = [] {
        auto drawn = std::make_shared<Picture>(kPicture, orvo::ColorProfileType::melissaRGB());
        fill(&drawn->data()->r, 3 * drawn->pixelCount(), 3 * static_cast<std::size_t>(kPicture.width));
        return drawn;
    }();
    return picture;
}

std::shared_ptr<const orvo::BaseBrushSettings> brush(float radius)
{
    return std::make_shared<orvo::RoundBrushSettings>(radius, 0.3f, 1.0f);
}

// Waits for the calls of a callback.
class Arrivals
{
public:
    void arrive()
    {
        {
            const std::lock_guard lock(mutex);
            ++count;
        }
        changed.notify_one();
    }
    // Blocks until one more call has come.
    void await()
    {
        std::unique_lock lock(mutex);
        changed.wait(lock, [this] { return count > seen; });
        ++seen;
    }

private:
    std::mutex mutex;
    std::condition_variable changed;
    long count = 0;
    long seen = 0;
};

// Times `call`, which returns when its result is there.
template <typename Call>
void timeCalls(benchmark::State& state, const Call& call)
{
    const PeakMemory peak;
    for (auto _ : state)
        call();
    peak.report(state);
}

// The channel of an editor's main view, on a display with sRGB.
class View
{
public:
    View(GenerativeProcessorBase& tool_, Rect part) : tool(tool_)
    {
        tool.changeColorProfile(orvo::ColorProfileType::sRGB());
        tool.initRender(
            [this](const orvo::NoAlphaRender::Data& data) {
                sane = sane && data.image && data.image->size() == kView;
                renders.arrive();
            },
            {kView, part});
        await();
    }
    void show(Rect part)
    {
        tool.setRenderContext({kView, part}, true);
        await();
    }
    void await() { renders.await(); }
    [[nodiscard]] bool isSane() const { return sane; }

private:
    GenerativeProcessorBase& tool;
    Arrivals renders;
    bool sane = true;
};

GenerativeProcessorBase::RequestInput requestOf(orvo::GenerativeEraseProcessor& tool)
{
    std::promise<GenerativeProcessorBase::RequestInput> promise;
    auto future = promise.get_future();
    tool.generateRequest("id", {}, [&](auto request) { promise.set_value(std::move(request)); });
    return future.get();
}

GenerativeProcessorBase::RequestInput requestOf(orvo::GenerativeExpandProcessor& tool, Rect rect)
{
    orvo::CropDescription crop;
    crop.rect = rect;
    std::promise<GenerativeProcessorBase::RequestInput> promise;
    auto future = promise.get_future();
    tool.generateRequest("id", crop, {}, [&](auto request) { promise.set_value(std::move(request)); });
    return future.get();
}

// Returns when everything added before has been done.
void settle(orvo::GenerativeEraseProcessor& tool)
{
    std::promise<void> promise;
    auto future = promise.get_future();
    tool.restoreState({}, [&](const auto&) { promise.set_value(); });
    future.get();
}

// A scribble over the middle: 1800 x 1200 pixels.
void paint(orvo::GenerativeEraseProcessor& tool)
{
    std::vector<orvo::_Point<float>> points;
    for (int i = 0; i <= 200; ++i)
        points.push_back(
            {2100.0f + 9.0f * static_cast<float>(i), 2000.0f + 600.0f * std::sin(0.1f * static_cast<float>(i))});
    tool.beginDrawing();
    tool.strokePoints(points, brush(80.0f));
    tool.finishDrawing();
}

// The sent picture, as the service's answer.
std::string answerTo(const GenerativeProcessorBase::RequestInput& request)
{
    return "data:image/png;base64," + request.image;
}

// From a point of the pointer to the delivered view, with the mask over the picture.
void strokePoint(benchmark::State& state, Rect part)
{
    orvo::GenerativeEraseProcessor tool(photograph());
    View view(tool, part);
    const auto settings = brush(static_cast<float>(state.range(0)));
    tool.beginDrawing();
    view.await();
    tool.startStroke({}, {});
    view.await();
    int i = 0;
    timeCalls(state, [&] {
        // A spiral that covers the view in the end.
        const float turn = 0.02f * static_cast<float>(i % 1500);
        ++i;
        const float reach = turn / 30.0f;
        tool.stroke(
            {static_cast<float>(part.x) + static_cast<float>(part.width) * (0.5f + 0.45f * reach * std::cos(turn)),
             static_cast<float>(part.y) + static_cast<float>(part.height) * (0.5f + 0.45f * reach * std::sin(turn))},
            settings);
        view.await();
    });
    require(state, view.isSane());
}
BENCHMARK_CAPTURE(strokePoint, whole, kWhole)
    ->Arg(80)
    ->Arg(400)
    ->MeasureProcessCPUTime()
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(strokePoint, zoomed, kZoomed)
    ->Arg(80)
    ->Arg(400)
    ->MeasureProcessCPUTime()
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);

void renderCached(benchmark::State& state)
{
    orvo::GenerativeEraseProcessor tool(photograph());
    View view(tool, kWhole);
    timeCalls(state, [&] { view.show(kWhole); });
    require(state, view.isSane());
}
BENCHMARK(renderCached)->MeasureProcessCPUTime()->UseRealTime()->Unit(benchmark::kMillisecond);

// Each view is new to the cache. `edited`: after an answer, from tiles.
void renderNew(benchmark::State& state, Rect part, bool edited)
{
    orvo::GenerativeEraseProcessor tool(photograph());
    if (edited) {
        paint(tool);
        tool.applyGeneratedResponse(answerTo(requestOf(tool)), {});
        settle(tool);
    }
    View view(tool, part);
    int i = 0;
    timeCalls(state, [&] {
        Rect shifted = part;
        shifted.x += ++i % 16;
        if (part == kWhole)
            shifted.width -= 16;
        view.show(shifted);
    });
    require(state, view.isSane());
}
BENCHMARK_CAPTURE(renderNew, whole, kWhole, false)
    ->MeasureProcessCPUTime()
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(renderNew, zoomed, kZoomed, false)
    ->MeasureProcessCPUTime()
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(renderNew, wholeEdited, kWhole, true)
    ->MeasureProcessCPUTime()
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(renderNew, zoomedEdited, kZoomed, true)
    ->MeasureProcessCPUTime()
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);

void eraseRequest(benchmark::State& state)
{
    orvo::GenerativeEraseProcessor tool(photograph());
    paint(tool);
    GenerativeProcessorBase::RequestInput request;
    timeCalls(state, [&] { request = requestOf(tool); });
    state.counters["characters"] = static_cast<double>(request.image.size() + request.mask.size());
    require(state, request.valid);
}
BENCHMARK(eraseRequest)->MeasureProcessCPUTime()->UseRealTime()->Unit(benchmark::kMillisecond);

void eraseAnswer(benchmark::State& state)
{
    orvo::GenerativeEraseProcessor tool(photograph());
    paint(tool);
    const std::string answer = answerTo(requestOf(tool));
    timeCalls(state, [&] {
        tool.applyGeneratedResponse(answer, {});
        settle(tool);
    });
    require(state, !tool.isInInitialState());
}
BENCHMARK(eraseAnswer)->MeasureProcessCPUTime()->UseRealTime()->Unit(benchmark::kMillisecond);

// Three states stay whole in memory; four in turn go through files.
void storeAndRestore(benchmark::State& state, int states)
{
    orvo::GenerativeEraseProcessor tool(photograph());
    paint(tool);
    const std::string answer = answerTo(requestOf(tool));
    std::vector<std::vector<unsigned char>> stored;
    for (int i = 0; i < states; ++i) {
        tool.applyGeneratedResponse(answer, {});
        stored.push_back(tool.storeState());
    }
    settle(tool);
    std::size_t next = 0;
    bool found = true;
    timeCalls(state, [&] {
        std::promise<bool> promise;
        auto future = promise.get_future();
        tool.restoreState(stored[next++ % stored.size()], [&](const auto& out) { promise.set_value(!out.id.empty()); });
        found = future.get() && found;
    });
    require(state, found);
}
BENCHMARK_CAPTURE(storeAndRestore, fromMemory, 3)
    ->MeasureProcessCPUTime()
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(storeAndRestore, fromFiles, 4)->MeasureProcessCPUTime()->UseRealTime()->Unit(benchmark::kMillisecond);

void storeState(benchmark::State& state)
{
    orvo::GenerativeEraseProcessor tool(photograph());
    paint(tool);
    tool.applyGeneratedResponse(answerTo(requestOf(tool)), {});
    settle(tool);
    std::vector<unsigned char> id;
    timeCalls(state, [&] {
        id = tool.storeState();
        settle(tool);
    });
    require(state, !id.empty());
}
BENCHMARK(storeState)->MeasureProcessCPUTime()->UseRealTime()->Unit(benchmark::kMillisecond);

// A tenth of the width more on both sides.
constexpr Rect kWider = {-600, 0, 7200, 4000};

void expandRequest(benchmark::State& state)
{
    orvo::GenerativeExpandProcessor tool(photograph());
    GenerativeProcessorBase::RequestInput request;
    timeCalls(state, [&] { request = requestOf(tool, kWider); });
    state.counters["characters"] = static_cast<double>(request.image.size() + request.mask.size());
    require(state, request.valid);
}
BENCHMARK(expandRequest)->MeasureProcessCPUTime()->UseRealTime()->Unit(benchmark::kMillisecond);

void expandAnswer(benchmark::State& state)
{
    orvo::GenerativeExpandProcessor tool(photograph());
    const std::string answer = answerTo(requestOf(tool, kWider));
    Size canvas;
    timeCalls(state, [&] {
        tool.applyGeneratedResponse(answer, {});
        std::promise<Size> promise;
        auto future = promise.get_future();
        tool.generateDataForExport([&](const orvo::RenderedData& data) { promise.set_value(data.image->size()); });
        canvas = future.get();
    });
    require(state, canvas == kWider.size());
}
BENCHMARK(expandAnswer)->MeasureProcessCPUTime()->UseRealTime()->Unit(benchmark::kMillisecond);

} // namespace
