// Scores a fused picture against its bracket: bench_score FUSED FRAMES...
// Prints MEF-SSIM (Ma, Zeng, Wang, IEEE TIP 24(11), 2015) and the percentage of clipped pixels, separated by a tab.
#include "bench_pictures.hpp"

#include <scenes/mef_ssim.hpp>

#include <algorithm>
#include <cstdio>
#include <stdexcept>
#include <vector>

namespace {

using orvo::bench::loadInSRGB;
using orvo::bench::Picture;

// A channel within half a step of an end of the 8-bit scale has no more information.
constexpr float kHalfStep = 0.5f / 255.0f;

// Pixels with any channel at an end of the scale.
double clippedPercent(const Picture& picture)
{
    std::size_t clipped = 0;
    for (std::size_t i = 0; i < picture.pixelCount(); ++i) {
        const auto& p = picture.data()[i];
        const float low = std::min({p.r, p.g, p.b});
        const float high = std::max({p.r, p.g, p.b});
        clipped += low < kHalfStep || high > 1.0f - kHalfStep ? 1 : 0;
    }
    return 100.0 * static_cast<double>(clipped) / static_cast<double>(picture.pixelCount());
}

} // namespace

int main(int argc, char** argv)
{
    if (argc < 4) {
        std::fputs("usage: bench_score FUSED FRAMES...\n", stderr);
        return 2;
    }
    try {
        const auto fused = loadInSRGB(argv[1]);
        std::vector<std::shared_ptr<const Picture>> frames;
        for (int i = 2; i < argc; ++i)
            frames.push_back(loadInSRGB(argv[i]));
        std::printf("%.4f\t%.3f\n", orvo::scenes::mefSsim(frames, *fused), clippedPercent(*fused));
    } catch (const std::exception& error) {
        std::fprintf(stderr, "bench_score: %s\n", error.what());
        return 1;
    }
}
