/// Focus series as camera files.
#pragma once

#include <scenes/focus_series.hpp>

#include <filesystem>
#include <string>
#include <vector>

namespace orvo::scenes {

enum class FocusFileFormat
{
    Jpeg,
    Tiff16
};

struct FocusFileSettings
{
    FocusFileFormat format = FocusFileFormat::Jpeg;
    int jpegQuality = 95;         ///< 1..100
    bool exif = true;             ///< false: as if a chat program had stripped the files
    std::string prefix = "focus"; ///< files are prefix_0.jpg, prefix_1.jpg, ...
};

/// Writes frame `index` of `series` into `folder`, which must exist, in sRGB. The EXIF exposure is the same for all
/// frames; the subject distance is the frame's focus. Returns the file's path. Throws as writeImage() does,
/// std::out_of_range. Peak: as FocusSeries::frame().
std::filesystem::path writeFocusFrame(const FocusSeries& series, int index, const std::filesystem::path& folder,
                                      const FocusFileSettings& settings);

/// Writes all frames, one after the other, from the nearest focus to the farthest.
std::vector<std::filesystem::path> writeFocusSeries(const FocusSeries& series, const std::filesystem::path& folder,
                                                    const FocusFileSettings& settings);

} // namespace orvo::scenes
