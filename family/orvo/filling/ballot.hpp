/// Votes of patches for the pixels they cover.
#pragma once

#include "filling/fill_level.hpp"
#include "filling/fill_settings.hpp"
#include "filling/patch_field.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <span>

namespace orvo::details {

/// Weights of votes, from tables, since an exponential per vote would dominate the cost.
class VoteWeights
{
public:
    VoteWeights(const PatchFillSettings& settings, float agreement)
    {
        for (std::size_t i = 0; i < evened.size(); ++i)
            evened[i] = static_cast<float>(kPatchPixels) /
                        static_cast<float>(kPatchPixels + (settings.rimWeight - 1) * static_cast<int>(i));
        for (std::size_t i = 0; i < byRatio.size(); ++i)
            byRatio[i] = std::exp(-agreement * static_cast<float>(i) / kStepsOfMean);
        for (std::size_t i = 0; i < byDepth.size(); ++i)
            byDepth[i] = std::pow(settings.depthFalloff, -static_cast<float>(std::min<std::size_t>(i, kDeepest)));
    }

    /// The distance of a patch with known pixels weighted like others.
    [[nodiscard]] float even(int distance, int known) const
    {
        return static_cast<float>(distance) * evened[static_cast<std::size_t>(known)];
    }

    // `inverseMean`: of the distances of all votes.
    [[nodiscard]] float operator()(float distance, int depth, float inverseMean) const
    {
        const float ratio = distance * inverseMean * kStepsOfMean;
        const auto index = static_cast<std::size_t>(std::min(ratio, static_cast<float>(byRatio.size() - 1)));
        return byRatio[index] * byDepth[static_cast<std::size_t>(depth)];
    }

private:
    static constexpr float kStepsOfMean = 32.0f;
    static constexpr std::size_t kDeepest = 100; // beyond it weights would underflow a float
    std::array<float, kPatchPixels + 1> evened{};
    std::array<float, 256> byRatio{};
    std::array<float, 256> byDepth{};
};

/// The votes of the patches over one pixel.
class Ballot
{
public:
    struct Vote
    {
        int source = 0; ///< index of the pixel voted for
        float weight = 0.0f;
        std::uint8_t column = 0; ///< of the pixel in the patch, 0..kPatch - 1
        std::uint8_t row = 0;
    };

    /// Collects the votes for the pixel at (x, y) of the level. Each pixel of the hole has at least one.
    void gather(const FillLevel& level, const PatchField& field, const VoteWeights& weights, int x, int y);

    [[nodiscard]] std::span<const Vote> votes() const { return {all.data(), count}; }

private:
    std::size_t count = 0;
    std::array<Vote, kPatchPixels> all{};
};

} // namespace orvo::details
