#include "panorama/stitched_places.hpp"

#include "panorama/panorama_stitcher.hpp"

#include <algorithm>
#include <cstddef>
#include <numeric>

namespace orvo {
namespace {

// For each index of the sorted names the one in `names`.
std::vector<std::size_t> orderOf(const std::vector<std::filesystem::path>& names)
{
    std::vector<std::size_t> order(names.size());
    std::iota(order.begin(), order.end(), std::size_t{0});
    std::stable_sort(order.begin(), order.end(), [&](std::size_t a, std::size_t b) { return names[a] < names[b]; });
    return order;
}

} // namespace

std::vector<PanoramaPlace> placesOf(const PanoramaStitcher& stitcher, const std::vector<std::filesystem::path>& names)
{
    constexpr std::int32_t kRegistered = 1;
    std::vector<PanoramaPlace> places;
    for (const auto& name : names)
        places.push_back({name, false, {}});
    if (places.empty() || stitcher.getStatus() != kRegistered)
        return places;
    const std::vector<std::size_t> order = orderOf(names);
    for (std::size_t i = 0; i < stitcher.usedCameras().size(); ++i) {
        PanoramaPlace& place = places[order[static_cast<std::size_t>(stitcher.usedIndices()[i])]];
        place.placed = true;
        const cv::Mat& r = stitcher.usedCameras()[i].R;
        for (int row = 0; row < 3; ++row)
            for (int column = 0; column < 3; ++column)
                place.rotation[static_cast<std::size_t>(row * 3 + column)] = r.at<float>(row, column);
    }
    return places;
}

} // namespace orvo
