#include "cut_rim.hpp"

#include <orvo_core/parallel.hpp>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <utility>
#include <vector>

namespace orvo::jobs {
namespace {

constexpr int kWidestSlit = 3; // half a pixel of the sphere, which is 5 pixels wide at most at the rim of a planet

using Pixel = PixelRGB<float>;

struct Plane
{
    explicit Plane(const _Size<int>& size)
        : width(size.width),
          bytes(static_cast<std::size_t>(size.width) * static_cast<std::size_t>(size.height), std::uint8_t{0})
    {}
    [[nodiscard]] std::uint8_t* row(int y)
    {
        return bytes.data() + static_cast<std::size_t>(y) * static_cast<std::size_t>(width);
    }
    [[nodiscard]] const std::uint8_t* row(int y) const
    {
        return bytes.data() + static_cast<std::size_t>(y) * static_cast<std::size_t>(width);
    }
    int width;
    std::vector<std::uint8_t> bytes;
};

// What a pixel is: outside of the content, in it, or in a slit of it.
enum Kind : std::uint8_t
{
    kOutside = 0,
    kContent = 1,
    kSlit = 2,
};

// Steps from a pixel to the content on either side of it along one axis, if they enclose a slit; 0 if not.
struct Slit
{
    int before = 0;
    int after = 0;
    [[nodiscard]] bool isOne() const { return before > 0; }
    [[nodiscard]] int width() const { return before + after - 1; }
};

template <typename IsContent>
Slit slitAt(const IsContent& isContent)
{
    int before = 1;
    while (before <= kWidestSlit && !isContent(-before))
        ++before;
    int after = 1;
    while (before + after - 1 <= kWidestSlit && !isContent(after))
        ++after;
    return before + after - 1 <= kWidestSlit ? Slit{before, after} : Slit{};
}

Slit slitInRow(const _ImageData<float>& mask, int x, int y)
{
    const float* const row = mask.row(y);
    return slitAt([&](int step) { return x + step >= 0 && x + step < mask.width() && row[x + step] > 0.0f; });
}

Slit slitInColumn(const _ImageData<float>& mask, int x, int y)
{
    return slitAt([&](int step) { return y + step >= 0 && y + step < mask.height() && mask.row(y + step)[x] > 0.0f; });
}

Plane kindsOf(const _ImageData<float>& mask)
{
    Plane kinds(mask.size());
    forEachRow(mask.height(), [&](int y) {
        std::uint8_t* const row = kinds.row(y);
        for (int x = 0; x < mask.width(); ++x)
            if (mask.row(y)[x] > 0.0f)
                row[x] = kContent;
            else if (slitInRow(mask, x, y).isOne() || slitInColumn(mask, x, y).isOne())
                row[x] = kSlit;
    });
    return kinds;
}

// A pixel of a slit, between the two pixels of the content that are nearest to each other.
Pixel bridged(const _ImageData<Pixel>& picture, const _ImageData<float>& mask, int x, int y)
{
    const Slit across = slitInRow(mask, x, y);
    const Slit down = slitInColumn(mask, x, y);
    const bool isAcross = across.isOne() && (!down.isOne() || across.width() <= down.width());
    const Slit& slit = isAcross ? across : down;
    const Pixel& a = isAcross ? picture.row(y)[x - slit.before] : picture.row(y - slit.before)[x];
    const Pixel& b = isAcross ? picture.row(y)[x + slit.after] : picture.row(y + slit.after)[x];
    const float share = static_cast<float>(slit.before) / static_cast<float>(slit.before + slit.after);
    return {a.r + (b.r - a.r) * share, a.g + (b.g - a.g) * share, a.b + (b.b - a.b) * share};
}

// Keeps the pixels of a row that have at least `rim` pixels of content on either side.
void keepInside(const std::uint8_t* kinds, int width, int rim, bool isClosed, std::uint8_t* inside)
{
    int run = isClosed ? rim : 0; // pixels of content in front of x
    for (int x = 0; x < width; ++x) {
        inside[x] = kinds[x] != kOutside && run >= rim ? kinds[x] : std::uint8_t{kOutside};
        run = kinds[x] != kOutside ? run + 1 : 0;
    }
    run = isClosed ? rim : 0;
    for (int x = width - 1; x >= 0; --x) {
        if (run < rim)
            inside[x] = kOutside;
        run = kinds[x] != kOutside ? run + 1 : 0;
    }
}

// The same for columns, one row of it.
void keepInside(const Plane& kinds, int height, int y, int rim, bool isClosed, std::uint8_t* inside)
{
    if (!isClosed && (y < rim || y + rim >= height))
        return;
    std::copy_n(kinds.row(y), kinds.width, inside);
    for (int near = std::max(0, y - rim); near <= std::min(height - 1, y + rim); ++near)
        for (int x = 0; x < kinds.width; ++x)
            if (kinds.row(near)[x] == kOutside)
                inside[x] = kOutside;
}

_Rect<int> boundsOf(const Plane& kinds, int height)
{
    std::vector<int> first(static_cast<std::size_t>(height), kinds.width);
    std::vector<int> last(static_cast<std::size_t>(height), -1);
    forEachRow(height, [&](int y) {
        const std::uint8_t* const row = kinds.row(y);
        for (int x = 0; x < kinds.width; ++x) {
            if (row[x] == kOutside)
                continue;
            first[static_cast<std::size_t>(y)] = std::min(first[static_cast<std::size_t>(y)], x);
            last[static_cast<std::size_t>(y)] = x;
        }
    });
    const auto hasContent = [](int column) { return column >= 0; };
    const auto top = std::find_if(last.begin(), last.end(), hasContent);
    if (top == last.end())
        return {};
    const auto bottom = std::find_if(last.rbegin(), last.rend(), hasContent).base();
    const int left = *std::min_element(first.begin(), first.end());
    const int right = *std::max_element(last.begin(), last.end());
    return {left, static_cast<int>(top - last.begin()), right - left + 1, static_cast<int>(bottom - top)};
}

} // namespace

std::shared_ptr<const _ImageData<float>> withoutSlits(const _ImageData<float>& mask)
{
    const Plane kinds = kindsOf(mask);
    auto closed = mask.copy({});
    forEachRow(mask.height(), [&](int y) {
        for (int x = 0; x < mask.width(); ++x)
            if (kinds.row(y)[x] == kSlit)
                closed->row(y)[x] = 1.0f;
    });
    return closed;
}

std::shared_ptr<const _ImageData<float>> withoutHoles(const _ImageData<float>& mask)
{
    Plane surroundings(mask.size()); // 1 where the way to a side of the mask is free of content
    std::vector<_Point<int>> reached;
    const auto reach = [&](int x, int y) {
        if (x < 0 || y < 0 || x >= mask.width() || y >= mask.height() || surroundings.row(y)[x] != 0 ||
            mask.row(y)[x] > 0.0f)
            return;
        surroundings.row(y)[x] = 1;
        reached.push_back({x, y});
    };
    for (int x = 0; x < mask.width(); ++x) {
        reach(x, 0);
        reach(x, mask.height() - 1);
    }
    for (int y = 0; y < mask.height(); ++y) {
        reach(0, y);
        reach(mask.width() - 1, y);
    }
    while (!reached.empty()) {
        const _Point<int> at = reached.back();
        reached.pop_back();
        reach(at.x - 1, at.y);
        reach(at.x + 1, at.y);
        reach(at.x, at.y - 1);
        reach(at.x, at.y + 1);
    }
    auto closed = mask.copy({});
    forEachRow(mask.height(), [&](int y) {
        for (int x = 0; x < mask.width(); ++x)
            if (surroundings.row(y)[x] == 0 && !(mask.row(y)[x] > 0.0f))
                closed->row(y)[x] = 1.0f;
    });
    return closed;
}

std::shared_ptr<const _ImageData<Pixel>> withoutRim(const _ImageData<Pixel>& picture, const _ImageData<float>& mask,
                                                    int rim, Beside beside,
                                                    std::shared_ptr<const _ImageData<float>>* coverage)
{
    Plane kinds = kindsOf(mask);
    Plane inRows(mask.size());
    forEachRow(mask.height(),
               [&](int y) { keepInside(kinds.row(y), mask.width(), rim, beside != Beside::Nothing, inRows.row(y)); });
    Plane& inside = kinds; // its memory, no longer needed for the kinds
    forEachRow(mask.height(), [&](int y) {
        std::fill_n(inside.row(y), mask.width(), std::uint8_t{kOutside});
        keepInside(inRows, mask.height(), y, rim, beside == Beside::MoreOfContent, inside.row(y));
    });
    const _Rect<int> bounds = boundsOf(inside, mask.height());
    if (bounds == _Rect<int>())
        return {};
    auto cut = std::make_shared<_ImageData<Pixel>>(bounds.size(), picture.colorProfile());
    std::shared_ptr<MaskImage> covered;
    if (coverage != nullptr)
        *coverage = covered = std::make_shared<MaskImage>(bounds.size());
    forEachRow(bounds.height, [&](int row) {
        const int y = bounds.y + row;
        Pixel* const to = cut->row(row);
        for (int column = 0; column < bounds.width; ++column) {
            const int x = bounds.x + column;
            if (covered)
                covered->row(row)[column] = inside.row(y)[x] == kOutside ? 0.0f : 1.0f;
            switch (inside.row(y)[x]) {
            case kContent:
                to[column] = picture.row(y)[x];
                break;
            case kSlit:
                to[column] = bridged(picture, mask, x, y);
                break;
            default:
                to[column] = {1.0f, 1.0f, 1.0f};
            }
        }
    });
    return cut;
}

} // namespace orvo::jobs
