#include "filling/ballot.hpp"

namespace orvo::details {

void Ballot::gather(const FillLevel& level, const PatchField& field, const VoteWeights& weights, int x, int y)
{
    std::array<std::size_t, kPatchPixels> patches;
    std::array<float, kPatchPixels> distances;
    float sum = 0.0f;
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
            all[count] = {field.source[patch] + row * level.width() + column, 0.0f, static_cast<std::uint8_t>(column),
                          static_cast<std::uint8_t>(row)};
            ++count;
        }
    const float inverseMean = static_cast<float>(count) / (sum + static_cast<float>(count));
    for (std::size_t i = 0; i < count; ++i)
        all[i].weight = weights(distances[i], level.depth[patches[i]], inverseMean);
}

} // namespace orvo::details
