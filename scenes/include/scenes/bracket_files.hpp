/// Brackets as camera files.
#pragma once

#include <scenes/bracket.hpp>

#include <filesystem>
#include <string>
#include <vector>

namespace orvo::scenes {

enum class BracketFileFormat
{
    Jpeg,
    Tiff16,
    Dng
};

struct BracketFileSettings
{
    BracketFileFormat format = BracketFileFormat::Jpeg;
    int jpegQuality = 95;         ///< 1..100
    bool exif = true;             ///< false: as if a chat program had stripped the files
    std::string prefix = "frame"; ///< files are prefix_0.jpg, prefix_1.jpg, ...
};

/// Writes frame `index` of `bracket` into `folder`, which must exist. The EXIF exposure is the shot's, the bias its EV
/// relative to the default exposure. Returns the file's path. Throws as writeImage() and writeDng() do,
/// std::out_of_range. Peak: one frame.
std::filesystem::path writeFrame(const Bracket& bracket, std::size_t index, const std::filesystem::path& folder,
                                 const BracketFileSettings& settings);

/// Writes all frames, one after the other, in the order of the shots.
std::vector<std::filesystem::path> writeBracket(const Bracket& bracket, const std::filesystem::path& folder,
                                                const BracketFileSettings& settings);

} // namespace orvo::scenes
