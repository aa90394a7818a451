/// Valid inputs for the fuzz targets, generated.
#pragma once

#include <filesystem>

namespace orvo::fuzz {

/// Writes a tiny picture of each format and kind that the reader knows. HEIC and AVIF only if libheif can encode them.
/// Throws std::exception.
void writePictureSeeds(const std::filesystem::path& folder);

} // namespace orvo::fuzz
