/// The name of a result that was given none.
#pragma once

#include <filesystem>
#include <string>

namespace orvo::jobs {

/// Beside `input`, with its name and what was done: "IMG_1.jpg" and "merged" give "IMG_1-merged.jpg". The format is
/// that of the input if it can be written; else TIFF for a camera raw file, whose depth it keeps, and JPEG for anything
/// else.
[[nodiscard]] std::filesystem::path defaultOutput(const std::filesystem::path& input, const std::string& done);

} // namespace orvo::jobs
