/// Small brackets, focus series, views around and broken files for the program.
#pragma once

#include "support/temporary_folder.hpp"

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace orvo::test {

struct FrameSettings
{
    int width = 240;
    int height = 160;
    bool exposureData = true; ///< EXIF contains time, aperture and sensitivity
};

struct FocusSettings
{
    int width = 240;
    int height = 160;
    int frames = 4;
    double shake = 3.0; ///< pixels
};

struct ViewSettings
{
    int width = 400;
    int height = 300;
    int views = 3;
    std::uint64_t scene = 1; ///< views of different scenes have nothing in common
    std::string ending = ".jpg";
    std::string prefix = "view";
    bool exif = true;
};

inline constexpr double kViewStep = 22.0;      ///< degrees between neighbouring views of writeViews()
inline constexpr double kStepEv = 2.0;         ///< between neighbouring frames of writeBracket()
inline constexpr std::size_t kMiddleFrame = 1; ///< of writeBracket()

/// Three JPEG frames of the room scene from dark to bright; their names sort differently.
std::vector<std::filesystem::path> writeBracket(const std::filesystem::path& folder,
                                                const FrameSettings& settings = {});

/// One JPEG frame of the same scene.
void writeFrame(const std::filesystem::path& path, const FrameSettings& settings);

/// A focus series of JPEG frames from near to far by a calm hand, named like their focus.
std::vector<std::filesystem::path> writeFocusSeries(const std::filesystem::path& folder,
                                                    const FocusSettings& settings = {});

/// Views around from left to right, in a row that an unsteady hand made. Each is exposed a little longer than the one
/// before, and the focal length is the width.
std::vector<std::filesystem::path> writeViews(const std::filesystem::path& folder, const ViewSettings& settings = {});

[[nodiscard]] std::vector<std::string> names(const std::vector<std::filesystem::path>& paths);

void writeText(const std::filesystem::path& path, const std::string& text);

/// The header of a picture of this size, without pixels.
[[nodiscard]] std::string pngHeader(std::uint32_t width, std::uint32_t height);
[[nodiscard]] std::string jpegHeader(std::uint16_t width, std::uint16_t height);

} // namespace orvo::test
