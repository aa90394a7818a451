/// Straight lines around the hole, and what they say about good sources.
#pragma once

#include "filling/fill_level.hpp"

#include <orvo_core/detail/vector_code.hpp>

#include <array>
#include <cstddef>

namespace orvo::details {

/// The one or two dominant directions of lines in the known part of a level. A picture of foliage or clouds has none.
class LineDirections
{
public:
    static constexpr std::size_t kMost = 2;

    /// None.
    LineDirections() = default;
    explicit LineDirections(const FillLevel& level);

    /// Unit vectors across the lines.
    struct Normal
    {
        float x = 0.0f;
        float y = 0.0f;
    };
    [[nodiscard]] std::size_t count() const { return found; }
    [[nodiscard]] const Normal& normal(std::size_t i) const { return normals[i]; }

private:
    std::array<Normal, kMost> normals;
    std::size_t found = 0;
};

/// The extra distance of a source by its offset from the target. A source along a line continues the line where it
/// belongs; one beside the line breaks it. So offsets along a direction are free, and the cost rises with the distance
/// across the nearest one (the idea is the directional cost of Huang, Kang, Ahuja, Kopf, SIGGRAPH 2014, here without
/// planes). Without directions every offset is free.
class OffsetCost
{
public:
    /// `reach`: pixels across a direction at which the cost reaches `most`, in units of patchDistance().
    OffsetCost(const LineDirections& directions, float reach, float most);

    ORVO_INLINE int operator()(int dx, int dy) const
    {
        if (count == 0)
            return 0;
        float least = 1.0f;
        for (std::size_t i = 0; i < count; ++i) {
            const float across = scaled[i].x * static_cast<float>(dx) + scaled[i].y * static_cast<float>(dy);
            const float size = across < 0.0f ? -across : across;
            least = size < least ? size : least;
        }
        return static_cast<int>(most * least);
    }

private:
    std::array<LineDirections::Normal, LineDirections::kMost> scaled; // normals divided by the reach
    std::size_t count;
    float most;
};

} // namespace orvo::details
