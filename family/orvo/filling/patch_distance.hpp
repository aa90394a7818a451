/// The distance of two patches.
#pragma once

#include "filling/fill_level.hpp"

#include <orvo_core/detail/vector_code.hpp>

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace orvo::details {

inline constexpr int kLoadBytes = kPatchLoad * static_cast<int>(sizeof(Texel));

/// Weights of the bytes of a row; 0 for those that are only loaded.
struct RowWeights
{
    alignas(32) std::array<std::int16_t, kLoadBytes> values{};
};

/// A copied patch with the weights of its pixels.
struct WeightedPatch
{
    std::array<std::array<std::uint8_t, kLoadBytes>, kPatch> bytes;
    std::array<RowWeights, kPatch> weights;

    void setPixel(std::size_t x, std::size_t y, const Texel& texel, std::int16_t colour, std::int16_t texture)
    {
        std::memcpy(bytes[y].data() + x * sizeof(Texel), &texel, sizeof(Texel));
        std::int16_t* const to = weights[y].values.data() + x * sizeof(Texel);
        to[0] = to[1] = to[2] = colour;
        to[3] = texture;
    }
};

/// The patch that begins at `corner`; all its pixels weigh 1.
inline WeightedPatch evenPatch(const FillLevel& level, int corner)
{
    WeightedPatch patch{};
    for (int y = 0; y < kPatch; ++y)
        for (int x = 0; x < kPatch; ++x)
            patch.setPixel(static_cast<std::size_t>(x), static_cast<std::size_t>(y),
                           level.texels[static_cast<std::size_t>(corner + y * level.width() + x)], 1, 1);
    return patch;
}

/// Sum of weighted squared differences of `rows` rows starting at `first`; `stride` in texels.
ORVO_INLINE int rowsDistance(const WeightedPatch& a, const Texel* b, std::ptrdiff_t stride, std::size_t first,
                             std::size_t rows)
{
    int sum = 0;
    for (std::size_t y = first; y < first + rows; ++y) {
        const auto* const q = reinterpret_cast<const std::uint8_t*>(b + static_cast<std::ptrdiff_t>(y) * stride);
        const auto& p = a.bytes[y];
        const auto& w = a.weights[y].values;
        for (std::size_t i = 0; i < kLoadBytes; ++i) {
            const auto difference = static_cast<std::int16_t>(p[i] - q[i]);
            const auto weighted = static_cast<std::int16_t>(difference * w[i]);
            sum += difference * weighted;
        }
    }
    return sum;
}

/// Sum of weighted squared differences. Once it reaches `limit`, any value not below `limit`.
ORVO_INLINE int patchDistance(const WeightedPatch& a, const Texel* b, std::ptrdiff_t stride, int limit)
{
    constexpr std::size_t kFirst = 3; // rows before the first check of the limit: half of all candidates end there
    const int first = rowsDistance(a, b, stride, 0, kFirst);
    if (first >= limit)
        return first;
    return first + rowsDistance(a, b, stride, kFirst, kPatch - kFirst);
}

/// Random numbers that depend only on the arguments, so the order of threads does not matter (Steele, Lea, Flood,
/// OOPSLA 2014: the mixing of SplitMix, here of 32 bits).
class CountedRandom
{
public:
    CountedRandom(unsigned stream, unsigned index) : state(mixed(stream * 0x9e3779b9u ^ mixed(index + 0x85ebca6bu))) {}

    ORVO_INLINE std::uint32_t next()
    {
        state += 0x9e3779b9u;
        return mixed(state);
    }
    /// 0..count-1.
    ORVO_INLINE int below(int count)
    {
        return static_cast<int>((static_cast<std::uint64_t>(next()) * static_cast<std::uint64_t>(count)) >> 32);
    }

private:
    ORVO_INLINE static std::uint32_t mixed(std::uint32_t v)
    {
        v = (v ^ (v >> 16)) * 0x7feb352du;
        v = (v ^ (v >> 15)) * 0x846ca68bu;
        return v ^ (v >> 16);
    }

    std::uint32_t state;
};

} // namespace orvo::details
