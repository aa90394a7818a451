#include "filling/ballot.hpp"

#include <algorithm>
#include <limits>

namespace orvo::details {

void Ballot::gather(const FillLevel& level, const PatchField& field, const VoteWeights& weights, int x, int y)
{
    std::array<std::size_t, kPatchPixels> patches;
    std::array<float, kPatchPixels> distances;
    float sum = 0.0f;
    float least = std::numeric_limits<float>::max();
    int shallowest = std::numeric_limits<int>::max();
    count = 0;
    for (int row = 0; row < kPatch; ++row)
        for (int column = 0; column < kPatch; ++column) {
            if (x < column || y < row)
                continue;
            const auto patch = static_cast<std::size_t>(level.at(x - column, y - row));
            if (level.targets[patch] == 0)
                continue;
            patches[count] = patch;
            distances[count] = weights.even(field.distance[patch], level.known[patch]);
            sum += distances[count];
            least = std::min(least, distances[count]);
            shallowest = std::min<int>(shallowest, level.depth[patch]);
            all[count] = {field.source[patch] + row * level.width() + column, 0.0f, static_cast<std::uint8_t>(column),
                          static_cast<std::uint8_t>(row)};
            ++count;
        }
    const float inverseMean = static_cast<float>(count) / (sum + static_cast<float>(count));
    // Only differences between the votes matter: without the rest, steep weights deep inside a hole do not underflow.
    for (std::size_t i = 0; i < count; ++i)
        all[i].weight = weights(distances[i] - least, level.depth[patches[i]] - shallowest, inverseMean);
}

} // namespace orvo::details
