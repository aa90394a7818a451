#include "mask_strokes.hpp"

#include <algorithm>
#include <cstdint>

namespace orvo::jobs {
namespace {

constexpr int kFarthest = 1024;       // a larger disc saves nothing
constexpr int kLeastDisc = 4;         // below it a line covers as much
constexpr int kLeastColumn = 8;       // pixels: shorter ones go into the rows
constexpr float kOnePixel = 0.5f;     // the radius whose hard stamp covers the pixel at its centre, and no other
constexpr unsigned char kCovered = 2; // marked, and painted by a stroke already

float centre(int pixel) { return static_cast<float>(pixel) + 0.5f; }

// Steps to the nearest unmarked pixel, a diagonal one counting as one: never more than the straight distance, so a disc
// with it stays among marked pixels. What lies outside of the picture is no obstacle.
ManagedPlane<std::uint16_t> distances(const MarkedPixels& marked)
{
    const int width = marked.size().width;
    const int height = marked.size().height;
    ManagedPlane<std::uint16_t> plane(static_cast<std::size_t>(width) * static_cast<std::size_t>(height));
    const auto at = [&](int x, int y) -> std::uint16_t& {
        return plane[static_cast<std::size_t>(y) * static_cast<std::size_t>(width) + static_cast<std::size_t>(x)];
    };
    const auto known = [&](int x, int y) -> int {
        return x < 0 || y < 0 || x >= width || y >= height ? kFarthest : at(x, y);
    };
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            const int least = std::min({known(x - 1, y), known(x - 1, y - 1), known(x, y - 1), known(x + 1, y - 1)});
            at(x, y) = static_cast<std::uint16_t>(marked.row(y)[x] != 0 ? std::min(kFarthest, least + 1) : 0);
        }
    for (int y = height - 1; y >= 0; --y)
        for (int x = width - 1; x >= 0; --x) {
            const int least = std::min({known(x + 1, y), known(x + 1, y + 1), known(x, y + 1), known(x - 1, y + 1)});
            at(x, y) = static_cast<std::uint16_t>(std::min<int>(at(x, y), least + 1));
        }
    return plane;
}

// Pixels deep enough for a disc, the deepest first, else in reading order.
std::vector<std::uint32_t> byDepth(const ManagedPlane<std::uint16_t>& depths, std::size_t count)
{
    std::vector<std::size_t> begin(kFarthest + 2, 0); // of each depth, counted from the deepest
    for (std::size_t i = 0; i < count; ++i)
        if (depths[i] >= kLeastDisc)
            ++begin[static_cast<std::size_t>(kFarthest - depths[i]) + 1];
    for (std::size_t depth = 1; depth < begin.size(); ++depth)
        begin[depth] += begin[depth - 1];
    std::vector<std::uint32_t> order(begin.back());
    for (std::size_t i = 0; i < count; ++i)
        if (depths[i] >= kLeastDisc)
            order[begin[static_cast<std::size_t>(kFarthest - depths[i])]++] = static_cast<std::uint32_t>(i);
    return order;
}

void cover(const MarkedPixels& marked, int x, int y, int reach)
{
    const int width = marked.size().width;
    const int height = marked.size().height;
    int half = 0;
    for (int dy = -reach; dy <= reach; ++dy) {
        while (half < reach && (half + 1) * (half + 1) + dy * dy <= reach * reach)
            ++half;
        while (half * half + dy * dy > reach * reach)
            --half;
        if (y + dy < 0 || y + dy >= height)
            continue;
        std::fill(marked.row(y + dy) + std::max(0, x - half), marked.row(y + dy) + std::min(width, x + half + 1),
                  kCovered);
    }
}

void addDiscs(const MarkedPixels& marked, std::vector<MaskStroke>& strokes)
{
    const int width = marked.size().width;
    const int height = marked.size().height;
    const auto depths = distances(marked);
    for (const std::uint32_t place :
         byDepth(depths, static_cast<std::size_t>(width) * static_cast<std::size_t>(height))) {
        const int x = static_cast<int>(place % static_cast<std::uint32_t>(width));
        const int y = static_cast<int>(place / static_cast<std::uint32_t>(width));
        if (marked.row(y)[x] == kCovered)
            continue;
        // A hard stamp is whole up to half a pixel within its radius and nothing half a pixel beyond it.
        strokes.push_back({static_cast<float>(depths[place]) - 0.5f, {{centre(x), centre(y)}}});
        cover(marked, x, y, depths[place] - 1);
    }
}

// Lines of uncovered pixels, at least `least` long, along x or y.
void addLines(const MarkedPixels& marked, bool down, int least, std::vector<MaskStroke>& strokes)
{
    const int width = marked.size().width;
    const int height = marked.size().height;
    const int lines = down ? width : height;
    const int length = down ? height : width;
    const auto mark = [&](int line, int i) -> unsigned char& {
        return down ? marked.row(i)[line] : marked.row(line)[i];
    };
    for (int line = 0; line < lines; ++line)
        for (int begin = 0, end = 0; begin < length; begin = end + 1) {
            for (end = begin; end < length && mark(line, end) == 1; ++end) {
            }
            if (end - begin < least)
                continue;
            const auto point = [&](int i) {
                return down ? _Point<float>(centre(line), centre(i)) : _Point<float>(centre(i), centre(line));
            };
            MaskStroke stroke{kOnePixel, {point(begin)}};
            if (end - begin > 1)
                stroke.points.push_back(point(end - 1));
            strokes.push_back(std::move(stroke));
            for (int i = begin; i < end; ++i)
                mark(line, i) = kCovered;
        }
}

} // namespace

std::vector<MaskStroke> strokesOf(const MarkedPixels& marked)
{
    const int width = marked.size().width;
    const int height = marked.size().height;
    const MarkedPixels left(marked.size()); // as given, then less what strokes cover
    for (int y = 0; y < height; ++y)
        std::transform(marked.row(y), marked.row(y) + width, left.row(y),
                       [](unsigned char mark) -> unsigned char { return mark != 0 ? 1 : 0; });
    std::vector<MaskStroke> strokes;
    addDiscs(left, strokes);
    addLines(left, /*down=*/true, kLeastColumn, strokes);
    addLines(left, /*down=*/false, 1, strokes);
    return strokes;
}

} // namespace orvo::jobs
