/// What an operation reads: a picture file, or a picture in memory.
#pragma once

#include <orvo_io/memory_picture.hpp>

#include <concepts>
#include <filesystem>
#include <optional>
#include <utility>
#include <vector>

namespace orvo {

/// Made from a path, a text, or a MemoryPicture, so that a list may mix them:
///
///     request.pictures = {"dark.jpg", layer, folder / "bright.jpg"};
class PictureInput
{
public:
    /// An empty path, which no operation can read.
    PictureInput() = default;
    /// A file. Implicit, like the next one. NOLINTBEGIN(google-explicit-constructor)
    template <typename Path>
    requires std::convertible_to<const Path&, std::filesystem::path> PictureInput(const Path& file) : location(file) {}
    /// A picture in memory. The samples are not copied.
    PictureInput(MemoryPicture picture) : location(picture.name), pixels(std::move(picture)) {}
    // NOLINTEND(google-explicit-constructor)

    /// The path of the file, or the name of the picture in memory.
    [[nodiscard]] const std::filesystem::path& path() const { return location; }
    /// Null for a file. Valid as long as this object.
    [[nodiscard]] const MemoryPicture* memory() const { return pixels ? &*pixels : nullptr; }

private:
    std::filesystem::path location;
    std::optional<MemoryPicture> pixels;
};

/// The files as inputs.
[[nodiscard]] inline std::vector<PictureInput> inputsOf(const std::vector<std::filesystem::path>& files)
{
    return {files.begin(), files.end()};
}

} // namespace orvo
