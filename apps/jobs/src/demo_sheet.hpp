/// Small pictures that show what a command is given and what it makes of it.
#pragma once

#include <filesystem>
#include <vector>

namespace orvo::jobs {

enum class SheetPart
{
    Whole,  ///< everything, reduced
    Detail, ///< the middle at the pixels of the result, for what does not show in a reduced picture
};

/// Writes the frames and the result as one small JPEG for a page: a single frame beside its result, several in a row
/// above it. At most kSheetFrames of the frames, evenly chosen; a detail is of a single frame. Throws FailureError.
void writeDemoSheet(const std::vector<std::filesystem::path>& frames, const std::filesystem::path& result,
                    SheetPart part, const std::filesystem::path& sheet);

inline constexpr int kSheetWidth = 600; ///< pixels; fills most of a column of a page
inline constexpr std::size_t kSheetFrames = 4;

} // namespace orvo::jobs
