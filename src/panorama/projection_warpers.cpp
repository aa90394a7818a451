#include "panorama/projection_warpers.hpp"

#include <utility>

namespace orvo {
namespace {

// Calls `visit` with the index of each table entry as a constant.
template <typename Visit>
void forEachProjection(const Visit& visit)
{
    [&visit]<std::size_t... kNumbers>(std::index_sequence<kNumbers...>)
    {
        (visit(std::integral_constant<std::size_t, kNumbers>()), ...);
    }
    (std::make_index_sequence<kProjections.size()>());
}

} // namespace

const Projection* projectionOf(const PanoramaWarper& warper)
{
    const Projection* found = nullptr;
    forEachProjection([&](auto number) {
        if (dynamic_cast<const ProjectionWarper<number()>*>(&warper) != nullptr)
            found = &kProjections[number()];
    });
    return found;
}

int warpNumberOf(WarpType type)
{
    int found = 2; // the sphere; values come from saved settings too
    forEachProjection([&](auto number) {
        if (kProjections[number()].type == type)
            found = static_cast<int>(number());
    });
    return found;
}

std::shared_ptr<PanoramaWarper> makeWarper(float scale, int internalNumber)
{
    std::shared_ptr<PanoramaWarper> made;
    forEachProjection([&](auto number) {
        if (internalNumber == static_cast<int>(number()))
            made = std::make_shared<ProjectionWarper<number()>>(scale);
    });
    return made;
}

} // namespace orvo
