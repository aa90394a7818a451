/// The name of a result that was given none.
#pragma once

#include <array>
#include <filesystem>
#include <string>

namespace orvo::jobs {

/// What was done, in the names of results.
inline constexpr const char* kDoneMerged = "merged";
inline constexpr const char* kDoneStacked = "stacked";
inline constexpr const char* kDonePanorama = "panorama";
inline constexpr const char* kDoneLarge = "large";
inline constexpr const char* kDoneFilled = "filled";
inline constexpr const char* kDoneErased = "erased";
inline constexpr const char* kDoneExpanded = "expanded";
inline constexpr const char* kDoneRestored = "restored";
/// All of them, by which results are recognised.
inline constexpr std::array kDoneWords = {kDoneMerged, kDoneStacked, kDonePanorama, kDoneLarge,
                                          kDoneFilled, kDoneErased,  kDoneExpanded, kDoneRestored};

/// Beside `input`, with its name and what was done: "IMG_1.jpg" and "merged" give "IMG_1-merged.jpg". The format is
/// that of the input if it can be written; else TIFF for a camera raw file, whose depth it keeps, and JPEG for anything
/// else.
[[nodiscard]] std::filesystem::path defaultOutput(const std::filesystem::path& input, const std::string& done);

} // namespace orvo::jobs
