#include "filling/smooth_fill.hpp"

#include <orvo_core/parallel.hpp>

#include <algorithm>
#include <cmath>
#include <vector>

namespace orvo::details {
namespace {

// Weighted sums of known pixels, and their weight, at most 1.
struct Block
{
    float r = 0.0f;
    float g = 0.0f;
    float b = 0.0f;
    float weight = 0.0f;
};

struct Blocks
{
    explicit Blocks(_Size<int> size_)
        : size(size_), plane(static_cast<std::size_t>(size_.width) * static_cast<std::size_t>(size_.height))
    {}
    [[nodiscard]] Block* row(int y) const
    {
        return plane.data() + static_cast<std::size_t>(y) * static_cast<std::size_t>(size.width);
    }

    _Size<int> size;
    ManagedPlane<Block> plane;
};

float finite(float v) { return std::isfinite(v) ? v : 0.0f; }

Blocks firstBlocks(const _ImageData<PixelRGB<float>>& picture, const Hole& hole)
{
    Blocks blocks(picture.size());
    forEachRow(picture.height(), [&](int y) {
        const PixelRGB<float>* const in = picture.row(y);
        for (int x = 0; x < picture.width(); ++x)
            blocks.row(y)[x] = hole.row(y)[x] != 0 ? Block{0.0f, 0.0f, 0.0f, 0.0f}
                                                   : Block{finite(in[x].r), finite(in[x].g), finite(in[x].b), 1.0f};
    });
    return blocks;
}

// Weighted means of 2 x 2 blocks; the weight is their sum, at most 1.
Blocks pulled(const Blocks& fine)
{
    Blocks coarse({(fine.size.width + 1) / 2, (fine.size.height + 1) / 2});
    forEachRow(coarse.size.height, [&](int y) {
        for (int x = 0; x < coarse.size.width; ++x) {
            Block sum;
            for (int dy = 0; dy < 2 && 2 * y + dy < fine.size.height; ++dy)
                for (int dx = 0; dx < 2 && 2 * x + dx < fine.size.width; ++dx) {
                    const Block& b = fine.row(2 * y + dy)[2 * x + dx];
                    sum.r += b.weight * b.r;
                    sum.g += b.weight * b.g;
                    sum.b += b.weight * b.b;
                    sum.weight += b.weight;
                }
            if (sum.weight > 0.0f)
                sum = {sum.r / sum.weight, sum.g / sum.weight, sum.b / sum.weight, std::min(sum.weight, 1.0f)};
            coarse.row(y)[x] = sum;
        }
    });
    return coarse;
}

// Fills up the blocks of `fine` with a weight below 1 from `coarse`, interpolated.
void push(const Blocks& coarse, Blocks& fine)
{
    forEachRow(fine.size.height, [&](int y) {
        const int nearY = y / 2;
        const int farY = std::clamp(nearY + (y % 2 == 0 ? -1 : 1), 0, coarse.size.height - 1);
        for (int x = 0; x < fine.size.width; ++x) {
            Block& block = fine.row(y)[x];
            if (block.weight >= 1.0f)
                continue;
            const int nearX = x / 2;
            const int farX = std::clamp(nearX + (x % 2 == 0 ? -1 : 1), 0, coarse.size.width - 1);
            constexpr float kNear = 0.75f;
            const auto mix = [&](float Block::*channel) {
                const auto across = [&](int row) {
                    return kNear * coarse.row(row)[nearX].*channel + (1.0f - kNear) * coarse.row(row)[farX].*channel;
                };
                const float wanted = kNear * across(nearY) + (1.0f - kNear) * across(farY);
                block.*channel = block.weight * block.*channel + (1.0f - block.weight) * wanted;
            };
            mix(&Block::r);
            mix(&Block::g);
            mix(&Block::b);
        }
    });
}

} // namespace

void fillSmoothly(_ImageData<PixelRGB<float>>& picture, const Hole& hole)
{
    std::vector<Blocks> levels;
    levels.push_back(firstBlocks(picture, hole));
    while (levels.back().size.width > 1 || levels.back().size.height > 1)
        levels.push_back(pulled(levels.back()));
    for (std::size_t i = levels.size() - 1; i > 0; --i)
        push(levels[i], levels[i - 1]);
    forEachRow(picture.height(), [&](int y) {
        for (int x = 0; x < picture.width(); ++x)
            if (hole.row(y)[x] != 0) {
                const Block& b = levels.front().row(y)[x];
                picture.row(y)[x] = {b.r, b.g, b.b};
            }
    });
}

} // namespace orvo::details
