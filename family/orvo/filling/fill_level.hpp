/// One level of the pyramid that a filling works on.
#pragma once

#include "filling/hole.hpp"

#include <orvo_common/memory_manager.hpp>
#include <orvo_core/geometry.hpp>
#include <orvo_core/image_data.hpp>

#include <cstddef>
#include <cstdint>
#include <vector>

namespace orvo::details {

/// Sides of a patch in pixels.
inline constexpr int kPatch = 7;
inline constexpr int kPatchPixels = kPatch * kPatch;
/// Pixels that a patch reads of a row: those of a vector register.
inline constexpr int kPatchLoad = 8;

/// Colour of 8 bits a channel and how much texture there is around, as one value that loads and compares at once.
struct Texel
{
    std::uint8_t r = 0;
    std::uint8_t g = 0;
    std::uint8_t b = 0;
    std::uint8_t texture = 0;
};
static_assert(sizeof(Texel) == 4, "rows of patches are compared as raw bytes");

enum class Place : std::uint8_t
{
    Known,
    Hole,    ///< is painted
    Outside, ///< beyond the picture or the searched part of it, and no patch needs it
};

/// A part of the picture at some scale, inside a margin so wide that patches may overhang the picture. The margin near
/// the hole is painted like the hole, and dropped in the end.
class FillLevel
{
public:
    /// Wide enough for a patch around a painted pixel of the margin, which itself is up to kPatch - 1 away from the
    /// picture.
    static constexpr int kMargin = kPatch - 1 + kPatch / 2;

    /// Nothing known, no hole. `size`: of the part of the picture, without the margin.
    explicit FillLevel(_Size<int> size);

    [[nodiscard]] int width() const { return stride; }
    [[nodiscard]] int height() const { return rows; }
    [[nodiscard]] _Size<int> inner() const { return {stride - 2 * kMargin, rows - 2 * kMargin}; }
    /// Index of the pixel at (x, y), counted with the margin.
    [[nodiscard]] int at(int x, int y) const { return y * stride + x; }

    /// To be called once colours and places of the inner part stand: marks what of the margin is painted, and which
    /// patches can be sources, and which meet the hole.
    void markPatches();

    ManagedPlane<Texel> texels;
    ManagedPlane<Place> places;
    /// 1 where the patch that begins there (its left top pixel) is known throughout.
    ManagedPlane<std::uint8_t> sources;
    /// 1 where the patch that begins there meets a pixel of the hole inside the picture.
    ManagedPlane<std::uint8_t> targets;
    /// Of each row: all targets lie in first..end-1.
    struct Span
    {
        int first = 0;
        int end = 0;
    };
    std::vector<Span> targetSpans;
    /// Begins of source patches in the order of rows, every one of up to about a million, else every second, third...
    std::vector<int> someSources;
    std::size_t sourceCount = 0;
    /// How many pixels of the patch that begins there are known.
    ManagedPlane<std::uint8_t> known;
    /// Chebyshev distance of the centre of each target patch to what is known.
    ManagedPlane<std::uint8_t> depth;

private:
    void measureDepth();

    int stride;
    int rows;
};

/// The finest level from the part `window` of `picture`.
[[nodiscard]] FillLevel finestLevel(const _ImageData<PixelRGB<float>>& picture, const Hole& hole,
                                    const _Rect<int>& window, int textureRadius, float textureGain);

/// Half as large: pixels are means of known ones; what has a pixel of the hole in it is hole.
[[nodiscard]] FillLevel coarserLevel(const FillLevel& fine);

} // namespace orvo::details
