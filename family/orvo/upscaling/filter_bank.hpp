/// The learned filters of the upscaler as data: a decision tree selects the filter for each place.
#pragma once

#include "upscaling/picture_sharpness.hpp"

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace orvo::details {

constexpr int kFilterRadius = 3; ///< of a patch, in samples of the small picture: 7 x 7
constexpr int kTaps = (2 * kFilterRadius + 1) * (2 * kFilterRadius + 1) - 1; ///< without the middle, row by row
constexpr int kPhases = 4;   ///< samples that a sample becomes: 00, 01, 10, 11 (row, column)
constexpr int kFeatures = 9; ///< inputs of the decision tree

/// The filters for one strength of noise.
struct FilterBank
{
    /// A decision: is the feature below the threshold? The next node is `below`, or the one after it. A leaf has a NaN
    /// threshold, so the comparison is always false, and leads to itself; so `depth` steps end in a leaf from
    /// everywhere.
    struct Node
    {
        std::uint32_t feature = 0;
        float threshold = 0.0f;
        std::uint32_t below = 0;
    };

    float noise = 0.0f; ///< standard deviation, in values, of the noise that the filters are for
    int depth = 0;
    std::vector<Node> nodes;
    std::vector<std::uint32_t> leafOfNode;
    /// Filters of a leaf: kTaps times kPhases, for the differences to the middle sample.
    std::vector<float> softFilters;    ///< for pictures whose pixels are means over their area and what lies around it
    std::vector<float> aliasedFilters; ///< for pictures that were reduced without averaging: steep edges, stairs

    /// The filters for pictures in between; `sharpness` is 0 for the soft and 1 for the aliased ones.
    [[nodiscard]] std::vector<float> filtersFor(float sharpness) const;
};

class FilterBanks
{
public:
    /// The filters built into the library. Any thread.
    [[nodiscard]] static const FilterBanks& builtIn();

    /// Parses the output of scripts/train_upscaler/train.py. Throws std::runtime_error that states the expected and the
    /// found value. A walk through an accepted bank never leaves its tables.
    [[nodiscard]] static FilterBanks parse(std::span<const unsigned char> bytes);

    /// The bank whose noise is nearest, by ratio.
    [[nodiscard]] const FilterBank& forNoise(float noise) const;
    [[nodiscard]] const std::vector<FilterBank>& all() const& { return banks; }
    /// Finds the mix of the filters that is best for a picture.
    [[nodiscard]] const SharpnessModel& sharpnessModel() const& { return model; }

private:
    SharpnessModel model = {};
    std::vector<FilterBank> banks; // by increasing noise, never empty
};

} // namespace orvo::details
