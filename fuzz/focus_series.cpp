// Frames of any size with any samples, including NaN and infinities, through the focus stacker.
#include "fuzz_target.hpp"

#include <orvo_common/memory_manager.hpp>
#include <orvo_core/parallel.hpp>
#include <orvo_image_processing/focus_stacking.hpp>

#include <array>
#include <cmath>
#include <cstring>
#include <limits>
#include <stdexcept>
#include <vector>

namespace {

using namespace orvo;
using fuzz::Arguments;
using fuzz::require;
using Pixel = PixelRGB<float>;

constexpr int kMostSide = 40;
constexpr int kMostFrames = 3;

// A byte is a sample: most are ordinary, the last ones are values that files and earlier steps may contain.
float sampleOf(std::uint8_t byte)
{
    using Limits = std::numeric_limits<float>;
    constexpr std::array<float, 16> kAwkward = {Limits::quiet_NaN(),
                                                Limits::infinity(),
                                                -Limits::infinity(),
                                                Limits::max(),
                                                Limits::lowest(),
                                                1e6f,
                                                -1e6f,
                                                1.001e6f,
                                                Limits::denorm_min(),
                                                -0.0f,
                                                -1.0f,
                                                2.0f,
                                                65504.0f,
                                                1e-20f,
                                                -1e-20f,
                                                1e5f};
    constexpr int kOrdinary = 256 - static_cast<int>(kAwkward.size());
    return byte < kOrdinary ? static_cast<float>(byte) / static_cast<float>(kOrdinary - 1)
                            : kAwkward[static_cast<std::size_t>(byte - kOrdinary)];
}

void stack(Arguments& arguments)
{
    const int width = arguments.number(1, kMostSide);
    const int height = arguments.number(1, kMostSide);
    const int frames = arguments.number(1, kMostFrames);
    const int levels = arguments.number(0, 12);
    const float value = arguments.number(0, 7) == 7 ? arguments.real() : static_cast<float>(arguments.number(0, 40));
    std::unique_ptr<grfx::IFocusStacking<Pixel>> stacker;
    try {
        stacker = grfx::produceLaplacianFocusStacking<Pixel>(width, height, value, levels, grfx::ESample::Float);
    } catch (const std::invalid_argument&) {
        require(levels < 1 || !(value >= 1.0f), "only arguments out of range are refused");
        return;
    }
    const std::size_t count = static_cast<std::size_t>(width) * static_cast<std::size_t>(height);
    std::vector<Pixel> pixels(count);
    for (int frame = 0; frame < frames; ++frame) {
        for (Pixel& pixel : pixels) {
            pixel.r = sampleOf(arguments.byte());
            pixel.g = sampleOf(arguments.byte());
            pixel.b = sampleOf(arguments.byte());
        }
        stacker->addFrame(pixels.data(), width, height, 0);
    }
    require(stacker->frameCount() == frames, "frames are counted");
    stacker->getResult(pixels.data(), width, height);
    for (const Pixel& pixel : pixels)
        require(std::isfinite(pixel.r) && std::isfinite(pixel.g) && std::isfinite(pixel.b), "results are finite");
    std::vector<Pixel> again(count);
    stacker->getResult(again.data(), width, height);
    require(std::memcmp(pixels.data(), again.data(), count * sizeof(Pixel)) == 0, "getting the result changes nothing");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    // Kept planes would hide an access beyond a plane from the address sanitizer.
    MemoryManager::instance().setCacheLimit(0);
    const WorkerLimit single(1); // the same code path in every run
    const std::size_t liveBefore = MemoryManager::instance().liveBytes();
    Arguments arguments({data, size});
    stack(arguments);
    require(MemoryManager::instance().liveBytes() == liveBefore, "every plane is freed");
    return 0;
}
