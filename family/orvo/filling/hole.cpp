#include "filling/hole.hpp"

#include <orvo_common/failure.hpp>
#include <orvo_core/parallel.hpp>

#include <algorithm>
#include <string>
#include <vector>

namespace orvo::details {
namespace {

constexpr float kThreshold = 0.5f;

// The sample of `from` under the centre of sample `at` of `to`.
int nearestSample(int at, int to, int from)
{
    return static_cast<int>((2 * static_cast<std::int64_t>(at) + 1) * from / (2 * static_cast<std::int64_t>(to)));
}

std::string sides(_Size<int> size) { return std::to_string(size.width) + " x " + std::to_string(size.height); }

_Size<int> checked(_Size<int> picture, _Size<int> mask)
{
    for (const auto& [name, size] : {std::pair{"picture", picture}, std::pair{"mask", mask}})
        if (size.width < 1 || size.height < 1)
            throw FailureError({FailureKind::UnfittingPictures,
                                {},
                                std::string("expected a ") + name + " with pixels, found one of " + sides(size)});
    return picture;
}

} // namespace

Hole::Hole(_Size<int> picture, const _ImageData<float>& mask)
    : extent(checked(picture, mask.size())),
      marks(static_cast<std::size_t>(picture.width) * static_cast<std::size_t>(picture.height))
{
    std::vector<int> columns(static_cast<std::size_t>(picture.width));
    for (int x = 0; x < picture.width; ++x)
        columns[static_cast<std::size_t>(x)] = nearestSample(x, picture.width, mask.width());
    forEachRow(picture.height, [&](int y) {
        const float* const samples = mask.row(nearestSample(y, picture.height, mask.height()));
        std::uint8_t* const out = marks.data() + rowOffset(y);
        for (int x = 0; x < extent.width; ++x)
            out[x] = samples[columns[static_cast<std::size_t>(x)]] >= kThreshold ? 1 : 0;
    });
    measure();
    if (count == static_cast<std::size_t>(extent.width) * static_cast<std::size_t>(extent.height))
        throw FailureError({FailureKind::UnfittingPictures,
                            {},
                            "expected a mask that leaves something of the picture, found one that marks all of " +
                                sides(extent) + " pixels"});
}

Hole::Hole(_Size<int> picture, const std::function<Place(int x, int y)>& placeAt)
    : extent(picture), marks(static_cast<std::size_t>(picture.width) * static_cast<std::size_t>(picture.height)),
      lacks(std::in_place, static_cast<std::size_t>(picture.width) * static_cast<std::size_t>(picture.height))
{
    forEachRow(picture.height, [&](int y) {
        for (int x = 0; x < extent.width; ++x) {
            const Place place = placeAt(x, y);
            const std::size_t i = rowOffset(y) + static_cast<std::size_t>(x);
            marks[i] = place == Place::Hole ? 1 : 0;
            (*lacks)[i] = place == Place::Outside ? 1 : 0;
        }
    });
    measure();
}

void Hole::measure()
{
    struct Row
    {
        int first;
        int end;
        int count;
    };
    std::vector<Row> rows(static_cast<std::size_t>(extent.height));
    forEachRow(extent.height, [&](int y) {
        const std::uint8_t* const in = row(y);
        Row found{extent.width, 0, 0};
        for (int x = 0; x < extent.width; ++x) {
            if (in[x] == 0)
                continue;
            found.first = std::min(found.first, x);
            found.end = x + 1;
            ++found.count;
        }
        rows[static_cast<std::size_t>(y)] = found;
    });
    int left = extent.width;
    int right = 0;
    int top = extent.height;
    int bottom = 0;
    for (int y = 0; y < extent.height; ++y) {
        const Row& found = rows[static_cast<std::size_t>(y)];
        if (found.count == 0)
            continue;
        left = std::min(left, found.first);
        right = std::max(right, found.end);
        top = std::min(top, y);
        bottom = y + 1;
        count += static_cast<std::size_t>(found.count);
    }
    if (count != 0)
        box = {left, top, right - left, bottom - top};
}

} // namespace orvo::details
