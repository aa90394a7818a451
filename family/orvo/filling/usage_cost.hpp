/// What a source costs because it is in use already.
#pragma once

#include "filling/fill_level.hpp"
#include "filling/fill_settings.hpp"
#include "filling/patch_field.hpp"

#include <orvo_core/detail/vector_code.hpp>

#include <cstddef>
#include <cstdint>
#include <vector>

namespace orvo::details {

/// The extra distance of sources that many targets copy. Without it, dark foliage becomes flat and a cloudy sky becomes
/// streaks of its first row: what is flat matches everything (after the uniform use of sources by Kaspar et al.,
/// Computer Graphics Forum 34, 2015, here only against the worst).
class UsageCost
{
public:
    /// For sources as `field` uses them.
    UsageCost(const PatchFillSettings& settings, const FillLevel& level, const PatchField& field);

    /// `source`: where the patch begins.
    ORVO_INLINE int operator()(int source) const { return costs.empty() ? 0 : costs[blockOf(source)]; }

private:
    static constexpr int kBlock = 4; // sources side by side count together
    ORVO_INLINE std::size_t blockOf(int source) const
    {
        return static_cast<std::size_t>(source / width / kBlock * columns + source % width / kBlock);
    }

    int width;
    int columns;
    std::vector<std::int32_t> costs;
};

} // namespace orvo::details
