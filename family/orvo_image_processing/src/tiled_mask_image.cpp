#include <orvo_core/parallel.hpp>
#include <orvo_image_processing/tiled_mask_image.hpp>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <stdexcept>

namespace orvo {
namespace {

constexpr std::size_t kTileSamples =
    static_cast<std::size_t>(TiledMaskImage::kTileSize) * static_cast<std::size_t>(TiledMaskImage::kTileSize);

// The samples covered by one result, with the weights of the first and the last; the others have weight 1.
struct Cover
{
    int first;
    int end;
    float firstShare;
    float lastShare;
};

Cover coverOf(int index, double scale, int length, int count)
{
    const double left = index * scale;
    const double right = index + 1 == count ? length : (index + 1) * scale;
    const int first = static_cast<int>(left);
    const int end = std::min(length, static_cast<int>(right) + (static_cast<double>(static_cast<int>(right)) < right));
    const double firstEnd = std::min(right, first + 1.0);
    return {first, end, static_cast<float>(firstEnd - left), static_cast<float>(right - (end - 1))};
}

// The part of a mask of `size` needed for `shown`; never empty.
_Rect<int> neededFor(const _Rect<int>& shown, _Size<int> size)
{
    constexpr std::int64_t kReach = 2; // samples beyond the part read when the mask grows
    const auto limited = [](std::int64_t value, int lower, int upper) {
        return static_cast<int>(std::clamp<std::int64_t>(value, lower, upper));
    };
    const int left = limited(shown.x - kReach, 0, size.width - 1);
    const int top = limited(shown.y - kReach, 0, size.height - 1);
    const int right = limited(std::int64_t{shown.x} + shown.width + kReach, left + 1, size.width);
    const int bottom = limited(std::int64_t{shown.y} + shown.height + kReach, top + 1, size.height);
    return {left, top, right - left, bottom - top};
}

} // namespace

TiledMaskImage::TiledMaskImage(_Size<int> size, float value) : extent(size)
{
    if (size.width < 0 || size.height < 0)
        throw std::invalid_argument("TiledMaskImage: a size cannot be negative");
    tiles.assign(static_cast<std::size_t>(columns()) * static_cast<std::size_t>(rows()), Tile{value, nullptr});
}

void TiledMaskImage::fill(float value) { tiles.assign(tiles.size(), Tile{value, nullptr}); }

float* TiledMaskImage::writableTile(int column, int row)
{
    Tile& tile = tiles[index(column, row)];
    if (!tile.samples || tile.samples.use_count() > 1) {
        auto own = std::make_shared<ManagedPlane<float>>(kTileSamples);
        if (tile.samples)
            std::memcpy(own->data(), tile.samples->data(), kTileSamples * sizeof(float));
        else
            std::fill_n(own->data(), kTileSamples, tile.uniform);
        tile.samples = std::move(own);
    }
    return tile.samples->data();
}

void TiledMaskImage::copyRow(int y, int left, int count, float* target) const
{
    for (int x = left; x < left + count;) {
        const Tile& tile = this->tile(x / kTileSize, y / kTileSize);
        const int length = std::min(kTileSize - x % kTileSize, left + count - x);
        float* const to = target + (x - left);
        if (tile.samples)
            std::memcpy(to,
                        tile.samples->data() + static_cast<std::ptrdiff_t>(y % kTileSize) * kTileSize + x % kTileSize,
                        static_cast<std::size_t>(length) * sizeof(float));
        else
            std::fill_n(to, length, tile.uniform);
        x += length;
    }
}

std::shared_ptr<MaskImage> TiledMaskImage::assembled(const _Rect<int>& part) const
{
    auto result = std::make_shared<MaskImage>(part.size());
    forEachRow(part.height, [&](int y) { copyRow(part.y + y, part.x, part.width, result->row(y)); });
    return result;
}

// Sums columns first, over the rows that a result covers, then along the row of sums. Both skip runs of zero tiles.
std::shared_ptr<MaskImage> TiledMaskImage::averaged(_Size<int> size, const _Rect<int>& part) const
{
    auto result = std::make_shared<MaskImage>(size);
    const double scaleX = static_cast<double>(part.width) / size.width;
    const double scaleY = static_cast<double>(part.height) / size.height;
    const int firstColumn = part.x / kTileSize;
    const int lastColumn = (part.x + part.width - 1) / kTileSize;
    const auto averageRow = [&](int y) {
        const Cover rowsOf = coverOf(y, scaleY, part.height, size.height);
        const auto area = static_cast<float>(1.0 / (scaleX * scaleY));
        float* const out = result->row(y);
        std::fill_n(out, size.width, 0.0f);
        float sums[kTileSize];
        for (int column = firstColumn; column <= lastColumn; ++column) {
            const int left = std::max(part.x, column * kTileSize);
            const int width = std::min(part.x + part.width, (column + 1) * kTileSize) - left;
            bool any = false;
            for (int row = rowsOf.first; row < rowsOf.end; ++row) {
                const int sourceY = part.y + row;
                const Tile& tile = this->tile(column, sourceY / kTileSize);
                if (!tile.samples && tile.uniform == 0.0f)
                    continue;
                if (!any)
                    std::fill_n(sums, width, 0.0f);
                any = true;
                const float share = row == rowsOf.first     ? rowsOf.firstShare
                                    : row + 1 == rowsOf.end ? rowsOf.lastShare
                                                            : 1.0f;
                if (!tile.samples) {
                    for (int x = 0; x < width; ++x)
                        sums[x] += share * tile.uniform;
                    continue;
                }
                const float* const samples = tile.samples->data() +
                                             static_cast<std::ptrdiff_t>(sourceY % kTileSize) * kTileSize +
                                             left % kTileSize;
                for (int x = 0; x < width; ++x)
                    sums[x] += share * samples[x];
            }
            if (!any)
                continue;
            const int begin = left - part.x;
            for (int i = static_cast<int>(begin / scaleX); i < size.width; ++i) {
                const Cover across = coverOf(i, scaleX, part.width, size.width);
                if (across.first >= begin + width)
                    break;
                float sum = 0.0f;
                for (int x = std::max(begin, across.first); x < std::min(begin + width, across.end); ++x)
                    sum += sums[x - begin] * (x == across.first     ? across.firstShare
                                              : x + 1 == across.end ? across.lastShare
                                                                    : 1.0f);
                out[i] += sum * area;
            }
        }
        for (int x = 0; x < size.width; ++x)
            out[x] = std::clamp(out[x], 0.0f, 1.0f);
    };
    forEachRow(size.height, averageRow);
    return result;
}

std::shared_ptr<MaskImage> TiledMaskImage::maskImage(_Size<int> size, _Rect<int> rect) const
{
    const _Rect<int> whole{0, 0, extent.width, extent.height};
    const _Rect<int> shown = rect == _Rect<int>() ? whole : rect;
    const _Size<int> wanted = size == _Size<int>() ? shown.size() : size;
    const bool inside = shown.x >= 0 && shown.y >= 0 && shown.width > 0 && shown.height > 0 &&
                        std::int64_t{shown.x} + shown.width <= extent.width &&
                        std::int64_t{shown.y} + shown.height <= extent.height;
    if (inside && wanted == shown.size())
        return assembled(shown);
    if (inside && wanted.width > 0 && wanted.height > 0 && wanted.width <= shown.width && wanted.height <= shown.height)
        return averaged(wanted, shown);
    if (extent.width == 0 || extent.height == 0)
        return assembled(whole)->resize(wanted, shown, true); // throws or returns empty
    const _Rect<int> needed = neededFor(shown, extent);
    return assembled(needed)->resize(wanted, {shown.x - needed.x, shown.y - needed.y, shown.width, shown.height}, true);
}

} // namespace orvo
