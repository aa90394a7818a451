// Sharpness of a focus stack relative to its own inputs, and to another program's stack of the same files:
// bench_focus_score [--against PICTURE] FRAMES...
// Prints the sum-modified-Laplacian of the stack as a share of that of the best aligned input, pixel by pixel, and its
// mean relative to that of the other picture, separated by a tab.
#include "bench_pictures.hpp"
#include "bracket/align_frames_streaming.hpp"
#include "bracket/focus_stack.hpp"
#include "bracket/load_frames.hpp"

#include <orvo_extensions/focus_stack.hpp>
#include <scenes/sharpness.hpp>

#include <cstdio>
#include <cstring>
#include <numeric>
#include <stdexcept>
#include <vector>

namespace {

using namespace orvo;
using bench::Picture;

using Paths = std::vector<std::filesystem::path>;

// The frames aligned to the middle one and cropped to their common area.
std::vector<std::shared_ptr<const Picture>> alignedFrames(const Paths& paths)
{
    std::vector<FocusStackerFrame> frames;
    for (const auto& path : paths) {
        frames.push_back(loadFrame<FocusStackerFrame>(path, static_cast<int>(ImageReaderOpenFlag::Bracket), {}, false));
        if (!frames.back().image)
            throw std::runtime_error("cannot read " + path.string());
    }
    _Rect<int> common(0, 0, frames[0].image->width(), frames[0].image->height());
    std::vector<std::shared_ptr<const Picture>> aligned;
    alignFramesStreaming([&](int i) { return frames[static_cast<std::size_t>(i)]; },
                         [&](int, FocusStackerFrame& frame, _Rect<int> valid) {
                             common = commonRectangle(common, valid);
                             aligned.push_back(frame.image);
                         },
                         frames.size(), frames.size() / 2);
    for (auto& frame : aligned)
        frame = frame->copy(common);
    return aligned;
}

// Over the middle of the picture: another program's stack is slightly shifted and has another border.
double meanSharpness(const Picture& picture)
{
    const auto middle = picture.copy(
        {picture.width() / 10, picture.height() / 10, picture.width() * 8 / 10, picture.height() * 8 / 10});
    const auto measure = scenes::sumModifiedLaplacian(*middle, 1, 5);
    const double sum = std::accumulate(measure->data(), measure->data() + measure->pixelCount(), 0.0);
    return sum / static_cast<double>(measure->pixelCount());
}

} // namespace

int main(int argc, char** argv)
{
    const bool hasOther = argc > 3 && std::strcmp(argv[1], "--against") == 0;
    const int first = hasOther ? 3 : 1;
    if (argc - first < 2) {
        std::fputs("usage: bench_focus_score [--against PICTURE] FRAMES...\n", stderr);
        return 2;
    }
    try {
        const Paths paths(argv + first, argv + argc);
        BracketSettings::FocusStacking settings;
        settings.adjust.referenceIndex = static_cast<std::int32_t>(paths.size() / 2);
        const auto image = makeFocusStack(paths, settings);
        if (!image)
            throw std::runtime_error("cannot stack the frames");
        const auto stack = image->developedOriginalImageData({});
        const auto aligned = alignedFrames(paths);
        std::printf("%.4f", scenes::sharpnessRatio(*stack, aligned, {}));
        if (hasOther) {
            auto other = bench::loadInSRGB(argv[2]);
            auto ours = stack->copy({});
            ours->convertTo(ColorProfileType::sRGB());
            std::printf("\t%.4f", meanSharpness(*ours) / meanSharpness(*other));
        }
        std::printf("\n");
    } catch (const std::exception& error) {
        std::fprintf(stderr, "bench_focus_score: %s\n", error.what());
        return 1;
    }
}
