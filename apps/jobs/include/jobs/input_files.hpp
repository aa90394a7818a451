/// The pictures that a user means by files and folders.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace orvo::jobs {

enum class LeftOutReason : std::int32_t
{
    Video,
    NoPicture,
    Result, ///< of this program, recognised by its name and the presence of its input
    Double, ///< of a camera raw file with the same name
    Folder, ///< within a folder
};

struct LeftOutFile
{
    std::filesystem::path path;
    LeftOutReason reason = LeftOutReason::NoPicture;
};

/// Such as "a video".
[[nodiscard]] const char* leftOutText(LeftOutReason reason);

struct InputFiles
{
    std::vector<std::filesystem::path> files;
    std::vector<LeftOutFile> leftOut; ///< without hidden files
};

/// Replaces each folder by the pictures in it, in the order of orderedByName(), without those in its folders and
/// without hidden files, results and `output`. Files stay as given, whatever they are.
/// Throws FailureError for a folder that cannot be read or has no pictures.
[[nodiscard]] InputFiles inputFiles(const std::vector<std::filesystem::path>& given,
                                    const std::filesystem::path& output = {});

/// The same, but also leaves out given files that are no pictures, results or doubles, as a memory card has them.
/// Files that cannot be read stay, since an operation has to report them.
[[nodiscard]] InputFiles cardFiles(const std::vector<std::filesystem::path>& given);

/// Those of the files that are results of this program by their names, and whose inputs are files of the list too: a
/// pattern such as IMG_*.jpg may match more than it was meant to.
[[nodiscard]] std::vector<std::filesystem::path> resultsAmong(const std::vector<std::filesystem::path>& files);

/// By name as people count: IMG_2 before IMG_10. Digits compare by value, letters without case, then by bytes.
[[nodiscard]] bool orderedByName(const std::filesystem::path& a, const std::filesystem::path& b);

/// One line such as "card: left out clip.mp4 (a video) and notes.txt (no picture)" for each folder of the files.
[[nodiscard]] std::vector<std::string> leftOutNotes(const std::vector<LeftOutFile>& leftOut);

} // namespace orvo::jobs
