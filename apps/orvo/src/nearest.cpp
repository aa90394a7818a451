#include "nearest.hpp"

#include <algorithm>
#include <cstddef>
#include <vector>

namespace orvo::cli {
namespace {

/// Optimal string alignment: the distance of Damerau (1964) without editing a letter twice.
std::size_t distance(std::string_view a, std::string_view b)
{
    std::vector<std::vector<std::size_t>> cost(a.size() + 1, std::vector<std::size_t>(b.size() + 1));
    for (std::size_t i = 0; i <= a.size(); ++i)
        for (std::size_t j = 0; j <= b.size(); ++j) {
            if (i == 0 || j == 0) {
                cost[i][j] = i + j;
                continue;
            }
            const std::size_t change = a[i - 1] == b[j - 1] ? 0 : 1;
            cost[i][j] = std::min({cost[i - 1][j] + 1, cost[i][j - 1] + 1, cost[i - 1][j - 1] + change});
            if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1])
                cost[i][j] = std::min(cost[i][j], cost[i - 2][j - 2] + 1);
        }
    return cost[a.size()][b.size()];
}

} // namespace

std::string_view nearestWord(std::string_view typed, std::span<const std::string_view> known)
{
    std::string_view best;
    std::size_t bestDistance = typed.size() + 1;
    for (const std::string_view word : known) {
        const std::size_t here = distance(typed, word);
        // At least half of the letters must match.
        if (here < bestDistance && 2 * here <= std::max(word.size(), typed.size())) {
            best = word;
            bestDistance = here;
        }
    }
    return best;
}

} // namespace orvo::cli
