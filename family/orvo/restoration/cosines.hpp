/// Blocks of 8 x 8 samples and their DCT.
#pragma once

#include <orvo_core/detail/vector_code.hpp>
#include <orvo_core/image_data.hpp>

#include <cmath>
#include <cstring>
#include <numbers>

namespace orvo::details {

inline constexpr int kBlockSide = 8;
inline constexpr int kBlockSamples = kBlockSide * kBlockSide;

struct alignas(32) CosineBlock
{
    float v[kBlockSide][kBlockSide];
};

/// The orthonormal 8-point DCT.
struct Cosines
{
    CosineBlock byRows;
    CosineBlock byColumns;

    Cosines()
    {
        for (int k = 0; k < kBlockSide; ++k)
            for (int x = 0; x < kBlockSide; ++x) {
                const double scale = std::sqrt((k == 0 ? 1.0 : 2.0) / kBlockSide);
                const double value = scale * std::cos(std::numbers::pi * (x + 0.5) * k / kBlockSide);
                byRows.v[k][x] = static_cast<float>(value);
                byColumns.v[x][k] = static_cast<float>(value);
            }
    }
    ORVO_INLINE void forward(CosineBlock& block) const
    {
        CosineBlock half;
        multiply(byRows, block, half);
        multiply(half, byColumns, block);
    }
    ORVO_INLINE void backward(CosineBlock& block) const
    {
        CosineBlock half;
        multiply(byColumns, block, half);
        multiply(half, byRows, block);
    }

private:
    /// out = a b
    static ORVO_INLINE void multiply(const CosineBlock& a, const CosineBlock& b, CosineBlock& out)
    {
        for (int y = 0; y < kBlockSide; ++y) {
            float row[kBlockSide] = {};
            for (int k = 0; k < kBlockSide; ++k)
                for (int x = 0; x < kBlockSide; ++x)
                    row[x] += a.v[y][k] * b.v[k][x];
            std::memcpy(out.v[y], row, sizeof row);
        }
    }
};

/// The three channels of the block at (x, y).
ORVO_INLINE void takeBlocks(const _ImageData<PixelRGB<float>>& picture, int x, int y, CosineBlock (&blocks)[3])
{
    for (int j = 0; j < kBlockSide; ++j) {
        const PixelRGB<float>* const row = picture.row(y + j) + x;
        for (int i = 0; i < kBlockSide; ++i) {
            blocks[0].v[j][i] = row[i].r;
            blocks[1].v[j][i] = row[i].g;
            blocks[2].v[j][i] = row[i].b;
        }
    }
}

} // namespace orvo::details
