/// Picture files by their first bytes.
#pragma once

#include <orvo_common/export.hpp>

#include <filesystem>

namespace orvo {

/// Whether the file begins like one of the formats that ImageReader reads. False if it cannot be opened; logs nothing.
/// Throws std::bad_alloc.
[[nodiscard]] ORVO_EXPORT bool beginsLikePicture(const std::filesystem::path& path);

} // namespace orvo
