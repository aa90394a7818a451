/// Which pictures of a panorama were placed.
#pragma once

#include <orvo_extensions/panorama.hpp>

#include <filesystem>
#include <vector>

namespace orvo {

class PanoramaStitcher;

/// One for each of `names`, in their order; none is placed unless the stitcher's registration succeeded. `names`: of
/// the pictures, by which the stitcher's source sorts them; of a video none.
[[nodiscard]] std::vector<PanoramaPlace> placesOf(const PanoramaStitcher& stitcher,
                                                  const std::vector<std::filesystem::path>& names);

} // namespace orvo
