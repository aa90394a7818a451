#include "focus_stacking_levels.hpp"

namespace orvo::detail {

namespace {

// Rows that share their scratch: enough to make its allocation negligible, few enough to feed many workers.
constexpr int kBandRows = 16;

} // namespace

std::vector<LevelExtent> levelExtents(int width, int height, float smallest, int most)
{
    std::vector<LevelExtent> extents = {{width, height}};
    for (int level = 1; level <= most; ++level) {
        const LevelExtent next = {halved(extents.back().width), halved(extents.back().height)};
        if (level > 1 && static_cast<float>(std::min(next.width, next.height)) < smallest)
            break;
        extents.push_back(next);
    }
    return extents;
}

ORVO_VECTOR_CLONES void splitRow(float* __restrict r, float* __restrict g, float* __restrict b,
                                 const float* __restrict samples, int width)
{
    for (int x = 0; x < width; ++x) {
        r[x] = samples[3 * x];
        g[x] = samples[3 * x + 1];
        b[x] = samples[3 * x + 2];
    }
}

void reducePicture(const Level& below, const PixelRGB<float>* pixels, LevelExtent extent)
{
    const int samples = kChannels * extent.width;
    forEachBand(below.height(), kBandRows, [&](int first, int last) {
        const ScratchRows mixed(1, samples);
        const ScratchRows split(kChannels, extent.width);
        const auto source = [&](int y) {
            const auto at = static_cast<std::size_t>(std::clamp(y, 0, extent.height - 1));
            return &pixels[at * static_cast<std::size_t>(extent.width)].r;
        };
        for (int y = first; y < last; ++y) {
            reduceColumns(mixed.row(0), source(2 * y - 2), source(2 * y - 1), source(2 * y), source(2 * y + 1),
                          source(2 * y + 2), samples);
            splitRow(split.row(0), split.row(1), split.row(2), mixed.row(0), extent.width);
            for (int c = 0; c < kChannels; ++c) {
                padRow(split.row(c), extent.width);
                narrowRow(below.row(c, y), split.row(c), extent.width);
            }
        }
    });
}

void reduceLevel(const Level& below, const Level& level, int channels)
{
    forEachBand(below.height(), kBandRows, [&](int first, int last) {
        const ScratchRows scratch(1, level.width());
        float* const line = scratch.row(0);
        for (int y = first; y < last; ++y)
            for (int c = 0; c < channels; ++c) {
                reduceColumns(line, level.nearRow(c, 2 * y - 2), level.nearRow(c, 2 * y - 1), level.nearRow(c, 2 * y),
                              level.nearRow(c, 2 * y + 1), level.nearRow(c, 2 * y + 2), level.width());
                padRow(line, level.width());
                narrowRow(below.row(c, y), line, level.width());
            }
    });
}

void expandRow(float* out, float* scratch, const Level& below, int channel, int y, int width)
{
    const int middle = y / 2;
    expandColumns(scratch, below.nearRow(channel, middle - 1), below.row(channel, middle),
                  below.nearRow(channel, middle + 1), y % 2 == 0, below.width());
    padRow(scratch, below.width());
    widenRow(out, scratch, width);
}

} // namespace orvo::detail
