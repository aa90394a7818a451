// The largest rectangle of a mask, at the sizes of a preview and of a finished panorama.
#include "measure.hpp"

#include <orvo_extensions/panorama_preview_composer.hpp>

#include <cmath>

namespace {

using namespace orvo::bench;

// A band with a ragged rim and some holes, like a handheld row of pictures.
void inscribedRect(benchmark::State& state)
{
    const Extent extent{static_cast<int>(state.range(0)), static_cast<int>(state.range(1))};
    orvo::MaskImage mask({extent.width, extent.height}, 0.0f);
    for (int x = 0; x < extent.width; ++x) {
        const double phase = 12.0 * x / extent.width;
        const int top = static_cast<int>(extent.height * (0.08 + 0.06 * std::abs(std::sin(phase))));
        const int bottom = static_cast<int>(extent.height * (0.92 - 0.06 * std::abs(std::cos(phase))));
        for (int y = top; y < bottom; ++y)
            mask.row(y)[x] = 1.0f;
    }
    orvo::_Rect<int> found;
    measure(state, extent, 4 * extent.pixels(), [&] { found = orvo::inscribedRectOfMask(mask); });
    require(state, found.width > extent.width / 2 && found.height > extent.height / 2);
}
BENCHMARK(inscribedRect)->Args({2000, 1500})->Args({12000, 6000})->UseManualTime()->Unit(benchmark::kMillisecond);

} // namespace
