#include "filling/plane_view.hpp"

#include "common/catmull_rom.hpp"

#include <orvo_core/parallel.hpp>

#include <algorithm>
#include <array>
#include <cmath>

namespace orvo::details {
namespace {

// Distances from the vanishing point, relative to that of the nearest part of the hole, between which the plane is
// shown: farther parts are blurred, nearer ones would alias.
constexpr float kFarthest = 0.33f;
constexpr float kClosest = 1.5f;
// The farthest part of the hole, likewise.
constexpr float kFarthestHole = 0.4f;
// How much larger the hole may become.
constexpr float kMostEnlarged = 4.0f;
// The view must not need more memory than the rest of a filling.
constexpr float kMostPixels = 32e6f;
// As around any hole (patch_filler.cpp): the search needs room.
constexpr int kLeastReach = 192;
constexpr int kTaps = 4;

// Where the four taps before, at and after a position begin, and their weights.
struct Taps
{
    int first;
    std::array<float, kTaps> weights;
};

Taps tapsAt(float position)
{
    const float floor = std::floor(position);
    return {static_cast<int>(floor) - 1, catmullRom(position - floor)};
}

PixelRGB<float> interpolated(const _ImageData<PixelRGB<float>>& picture, float x, float y)
{
    const Taps columns = tapsAt(x);
    const Taps rows = tapsAt(y);
    PixelRGB<float> sum;
    for (int j = 0; j < kTaps; ++j) {
        const PixelRGB<float>* const row = picture.row(std::clamp(rows.first + j, 0, picture.height() - 1));
        for (int i = 0; i < kTaps; ++i) {
            const PixelRGB<float>& p = row[std::clamp(columns.first + i, 0, picture.width() - 1)];
            const float weight =
                rows.weights[static_cast<std::size_t>(j)] * columns.weights[static_cast<std::size_t>(i)];
            sum.r += weight * p.r;
            sum.g += weight * p.g;
            sum.b += weight * p.b;
        }
    }
    return sum;
}

struct Range
{
    float least;
    float most;

    void add(float value)
    {
        least = std::min(least, value);
        most = std::max(most, value);
    }
};

} // namespace

PlaneView::PlaneView(VanishingPoint point_, const Hole& hole) : point(point_)
{
    const _Rect<int>& box = hole.bounds();
    const float middleX = static_cast<float>(box.x) + 0.5f * static_cast<float>(box.width - 1);
    const float middleY = static_cast<float>(box.y) + 0.5f * static_cast<float>(box.height - 1);
    across = std::abs(point.x - middleX) > std::abs(point.y - middleY);
    side = (across ? middleX > point.x : middleY > point.y) ? 1.0f : -1.0f;
}

// Along the axis, a distance w from the vanishing point becomes n - n^2 / w, where n is that of the nearest part, so
// that the scale there is 1; a distance u beside the axis becomes n u / w.
PlaneView::Position PlaneView::inView(Position picture) const
{
    const float w = side * (across ? picture.x - point.x : picture.y - point.y);
    const float u = across ? picture.y - point.y : picture.x - point.x;
    const float along = side * (nearest - nearest * nearest / w);
    const float beside = nearest * u / w;
    return across ? Position{along - origin.x, beside - origin.y} : Position{beside - origin.x, along - origin.y};
}

PlaneView::Position PlaneView::inPicture(Position view) const
{
    const float along = side * (across ? view.x + origin.x : view.y + origin.y);
    const float beside = across ? view.y + origin.y : view.x + origin.x;
    const float w = nearest * nearest / (nearest - along);
    const float u = beside * w / nearest;
    return across ? Position{point.x + side * w, point.y + u} : Position{point.x + u, point.y + side * w};
}

std::optional<PlaneView> PlaneView::around(const Hole& hole, VanishingPoint point)
{
    PlaneView view(point, hole);
    const _Rect<int>& box = hole.bounds();
    const auto first = static_cast<float>(view.across ? box.x : box.y);
    const float last = first + static_cast<float>((view.across ? box.width : box.height) - 1);
    const float centre = view.across ? point.x : point.y;
    Range distance{view.side * (first - centre), view.side * (first - centre)};
    distance.add(view.side * (last - centre));
    if (!(distance.least >= kFarthestHole * distance.most))
        return {};
    view.nearest = distance.most;
    Position corner = view.inView({static_cast<float>(box.x), static_cast<float>(box.y)});
    Range columns{corner.x, corner.x};
    Range rows{corner.y, corner.y};
    for (const int x : {box.x, box.x + box.width - 1})
        for (const int y : {box.y, box.y + box.height - 1}) {
            corner = view.inView({static_cast<float>(x), static_cast<float>(y)});
            columns.add(corner.x);
            rows.add(corner.y);
        }
    const float width = columns.most - columns.least;
    const float height = rows.most - rows.least;
    view.enlarged = width * height / (static_cast<float>(box.width) * static_cast<float>(box.height));
    if (!(view.enlarged <= kMostEnlarged))
        return {};
    const float reach = std::max({width, height, static_cast<float>(kLeastReach)});
    if (!((width + 2.0f * reach) * (height + 2.0f * reach) <= kMostPixels))
        return {};
    view.origin = {std::floor(columns.least - reach), std::floor(rows.least - reach)};
    view.extent = {static_cast<int>(std::ceil(width + 2.0f * reach)),
                   static_cast<int>(std::ceil(height + 2.0f * reach))};
    return view;
}

Place PlaneView::placeOf(Position at, const Hole& from) const
{
    const float w = side * (across ? at.x - point.x : at.y - point.y);
    if (!(w >= kFarthest * nearest && w <= kClosest * nearest))
        return Place::Outside;
    const int left = static_cast<int>(std::floor(at.x)) - 1;
    const int top = static_cast<int>(std::floor(at.y)) - 1;
    bool whole = true;
    for (int y = top; y < top + kTaps; ++y)
        for (int x = left; x < left + kTaps; ++x) {
            if (x < 0 || y < 0 || x >= from.size().width || y >= from.size().height)
                whole = false;
            else if (from.row(y)[x] != 0)
                return Place::Hole;
        }
    return whole ? Place::Known : Place::Outside;
}

std::shared_ptr<_ImageData<PixelRGB<float>>> PlaneView::picture(const _ImageData<PixelRGB<float>>& from,
                                                                const Hole& hole) const
{
    auto view = std::make_shared<_ImageData<PixelRGB<float>>>(extent, PixelRGB<float>{}, from.colorProfile());
    forEachRow(extent.height, [&](int y) {
        PixelRGB<float>* const out = view->row(y);
        for (int x = 0; x < extent.width; ++x) {
            const Position at = inPicture({static_cast<float>(x), static_cast<float>(y)});
            if (placeOf(at, hole) == Place::Known)
                out[x] = interpolated(from, at.x, at.y);
        }
    });
    return view;
}

Hole PlaneView::hole(const Hole& from) const
{
    return Hole(extent, [&](int x, int y) {
        return placeOf(inPicture({static_cast<float>(x), static_cast<float>(y)}), from);
    });
}

void PlaneView::paint(const _ImageData<PixelRGB<float>>& warped, const Hole& hole,
                      _ImageData<PixelRGB<float>>& to) const
{
    // Where the view is enlarged a lot, the mean of several samples of it; less would only blur.
    const int samples = enlarged > 2.5f ? 2 : 1;
    const _Rect<int>& box = hole.bounds();
    forEachRow(box.height, [&](int row) {
        const int y = box.y + row;
        for (int x = box.x; x < box.x + box.width; ++x) {
            if (hole.row(y)[x] == 0)
                continue;
            PixelRGB<float> sum;
            const auto offset = [&](int i) {
                return (static_cast<float>(i) + 0.5f) / static_cast<float>(samples) - 0.5f;
            };
            for (int j = 0; j < samples; ++j)
                for (int i = 0; i < samples; ++i) {
                    const Position at = inView({static_cast<float>(x) + offset(i), static_cast<float>(y) + offset(j)});
                    const PixelRGB<float> p = interpolated(warped, at.x, at.y);
                    sum.r += p.r;
                    sum.g += p.g;
                    sum.b += p.b;
                }
            const float share = 1.0f / static_cast<float>(samples * samples);
            to.row(y)[x] = {share * sum.r, share * sum.g, share * sum.b};
        }
    });
}

} // namespace orvo::details
