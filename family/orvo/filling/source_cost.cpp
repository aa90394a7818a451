#include "filling/source_cost.hpp"

#include "filling/patch_distance.hpp"

#include <orvo_core/parallel.hpp>

#include <algorithm>
#include <cstdlib>

namespace orvo::details {
namespace {

// Comparisons for all patches together: about a quarter of a second on one core.
constexpr std::int64_t kMostComparisons = 10'000'000;
// 64 steps of 8 bits in every sample: as rare as anything.
constexpr int kRarest = kPatchPixels * static_cast<int>(sizeof(Texel)) * 64 * 64;
// Pixels of the coarsest level between source and target from which on rarity costs in full. Nearer sources continue
// what is at the rim.
constexpr int kRareReach = 2 * kPatch;
constexpr int kColours = 3;

OffsetCost lineCost(const PatchFillSettings& settings, const FillLevel& level, const LineDirections& lines)
{
    constexpr float kReach = 0.03f; // of the longer side: offsets farther across the lines all cost the same
    constexpr float kLeastAcross = 1.5f;
    const float most = settings.lineWeight * settings.lineWeight * static_cast<float>(kPatchPixels * kColours);
    return {settings.lineWeight > 0.0f ? lines : LineDirections(),
            std::max(kLeastAcross, kReach * static_cast<float>(std::max(level.width(), level.height()))), most};
}

} // namespace

Rarity::Rarity(const FillLevel& level)
    : distances(static_cast<std::size_t>(level.width()) * static_cast<std::size_t>(level.height()), true),
      width(level.width())
{
    const auto count = static_cast<std::int64_t>(level.someSources.size());
    const auto step = static_cast<std::size_t>(count * count / kMostComparisons + 1);
    forEachRow(level.height(), [&](int y) {
        for (int x = 0; x < width; ++x) {
            const int corner = level.at(x, y);
            if (level.sources[static_cast<std::size_t>(corner)] == 0)
                continue;
            const WeightedPatch patch = evenPatch(level, corner);
            int least = kRarest;
            runLoop([&]() __attribute__((always_inline)) {
                for (std::size_t i = 0; i < level.someSources.size(); i += step) {
                    const int other = level.someSources[i];
                    // Overlapping patches resemble each other anyway.
                    if (std::abs(other % width - x) < kPatch && std::abs(other / width - y) < kPatch)
                        continue;
                    least = std::min(least, patchDistance(patch, level.texels.data() + other, width, least));
                }
            });
            distances[static_cast<std::size_t>(corner)] = least;
        }
    });
}

SourceCost::SourceCost(const PatchFillSettings& settings, const FillLevel& level, const LineDirections& lines,
                       const Rarity* rarity_, int shift_, bool isBorder)
    : acrossLines(lineCost(settings, level, lines)), rarity(rarity_), width(level.width()), shift(shift_),
      weight(settings.rareWeight), perReach(1.0f / static_cast<float>(kRareReach << shift_))
{
    if (!isBorder || !(settings.heightWeight > 0.0f))
        return;
    const auto hasSource = [&](int y) {
        const std::uint8_t* const row = level.sources.data() + level.at(0, y);
        return std::find(row, row + width, std::uint8_t{1}) != row + width;
    };
    bottom = level.height() - 1;
    while (top < bottom && !hasSource(top))
        ++top;
    while (bottom > top && !hasSource(bottom))
        --bottom;
    // A small part of a picture says little about the rest of its height.
    if (2 * (bottom - top) < level.inner().height)
        return;
    heightCost = settings.heightWeight * settings.heightWeight * static_cast<float>(kPatchPixels * kColours);
    perHeight = 1.0f / std::max(1.0f, settings.heightReach * static_cast<float>(bottom - top));
}

} // namespace orvo::details
