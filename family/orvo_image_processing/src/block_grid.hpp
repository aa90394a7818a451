/// A picture divided into square blocks, and window sums over planes of block sums.
#pragma once

#include <orvo_core/pixel.hpp>

namespace orvo::detail {

/// One axis of a picture divided into blocks; the last block may be shorter.
struct BlockAxis
{
    int size;  ///< pixels, at least 1
    int side;  ///< pixels of a whole block
    int count; ///< blocks

    BlockAxis(int size_, int side_) : size(size_), side(side_), count((size_ + side_ - 1) / side_) {}
    [[nodiscard]] int first(int block) const { return block * side; }
    [[nodiscard]] int last(int block) const { return (block + 1) * side < size ? (block + 1) * side : size; }
    /// In pixels, where the centre of the first pixel is 0.
    [[nodiscard]] float centre(int block) const { return 0.5f * static_cast<float>(first(block) + last(block) - 1); }
    /// Number of blocks whose centre is at or left of pixel `x`: 0..count.
    [[nodiscard]] int centresUpTo(int x) const;
};

/// In place along both axes: the sum of each block becomes the mean over the window of all pixels at most `radius` from
/// the block's centre. A block at the edge of the window counts with its part inside. `planes` are contiguous. The time
/// per block does not depend on the radius.
void meansOfWindows(float* planes, int planeCount, const BlockAxis& columns, const BlockAxis& rows, float radius);

} // namespace orvo::detail
