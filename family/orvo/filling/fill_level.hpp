/// One level of the pyramid of a filling.
#pragma once

#include "filling/hole.hpp"

#include <orvo_common/memory_manager.hpp>
#include <orvo_core/geometry.hpp>
#include <orvo_core/image_data.hpp>
#include <orvo_core/parallel.hpp>

#include <cstddef>
#include <cstdint>
#include <vector>

namespace orvo::details {

/// Side of a patch in pixels.
inline constexpr int kPatch = 7;
inline constexpr int kPatchPixels = kPatch * kPatch;
/// Pixels loaded per patch row: the width of a vector register.
inline constexpr int kPatchLoad = 8;

/// 8-bit colour and the amount of texture around it in one value, loaded and compared at once.
struct Texel
{
    std::uint8_t r = 0;
    std::uint8_t g = 0;
    std::uint8_t b = 0;
    std::uint8_t texture = 0;
};
static_assert(sizeof(Texel) == 4, "rows of patches are compared as raw bytes");

/// A part of the picture at some scale, inside a margin that lets patches overhang the picture. The margin near the
/// hole is painted like the hole and dropped at the end.
class FillLevel
{
public:
    /// Fits a patch around a painted pixel of the margin, itself up to kPatch - 1 away from the picture.
    static constexpr int kMargin = kPatch - 1 + kPatch / 2;

    /// Starts with no known pixels and no hole. `size`: of the part of the picture, without the margin.
    explicit FillLevel(_Size<int> size);

    [[nodiscard]] int width() const { return stride; }
    [[nodiscard]] int height() const { return rows; }
    [[nodiscard]] _Size<int> inner() const { return {stride - 2 * kMargin, rows - 2 * kMargin}; }
    /// Index of the pixel at (x, y); the index includes the margin.
    [[nodiscard]] int at(int x, int y) const { return y * stride + x; }

    /// Call once colours and pixel kinds of the inner part are set. Marks the painted pixels of the margin, the patches
    /// usable as sources and the patches that meet the hole.
    void markPatches();

    ManagedPlane<Texel> texels;
    ManagedPlane<Place> places;
    /// 1 where the patch that begins there (its top left pixel) is entirely known.
    ManagedPlane<std::uint8_t> sources;
    /// 1 where the patch that begins there meets the hole inside the picture.
    ManagedPlane<std::uint8_t> targets;
    /// Per row: all targets lie in first..end-1.
    struct Span
    {
        int first = 0;
        int end = 0;
    };
    std::vector<Span> targetSpans;
    /// Begins of source patches in row order: all of them up to about a million, else every second, third...
    std::vector<int> someSources;
    std::size_t sourceCount = 0;
    /// Number of known pixels in the patch that begins there.
    ManagedPlane<std::uint8_t> known;
    /// Chebyshev distance from the centre of each target patch to the nearest known pixel.
    ManagedPlane<std::uint8_t> depth;

private:
    void measureDepth();

    int stride;
    int rows;
};

/// The finest level from the part `window` of `picture`.
[[nodiscard]] FillLevel finestLevel(const _ImageData<PixelRGB<float>>& picture, const Hole& hole,
                                    const _Rect<int>& window, int textureRadius, float textureGain);

/// Half the size. A pixel is the weighted mean (1 3 3 1 across and down) of the known pixels among the 4 x 4 around it;
/// it is hole if any of its own 2 x 2 is, else outside if any of these is.
[[nodiscard]] FillLevel coarserLevel(const FillLevel& fine);

/// Calls `body(corner)` for every target, on any thread.
template <typename Body>
void forEachTarget(const FillLevel& level, const Body& body)
{
    forEachRow(level.height(), [&](int y) {
        const FillLevel::Span span = level.targetSpans[static_cast<std::size_t>(y)];
        for (int x = span.first; x < span.end; ++x)
            if (const int corner = level.at(x, y); level.targets[static_cast<std::size_t>(corner)] != 0)
                body(corner);
    });
}

} // namespace orvo::details
