/// Access to a source image.
#pragma once

#include <orvo_common/export.hpp>
#include <orvo_core/image.hpp>

#include <filesystem>
#include <functional>
#include <memory>

namespace orvo {

/// Provides the Image of a file: opens it at the first call and keeps it. The loader that creates a provider passes in
/// the function that opens the file. All members are thread-safe.
class ORVO_EXPORT ImageProvider
{
public:
    /// Opens a file; returns an empty pointer if that fails.
    using Opener = std::function<std::shared_ptr<Image>(const std::filesystem::path& file)>;

    /// `raw`: the file is a camera raw file. With an empty opener nothing is opened.
    ImageProvider(std::filesystem::path file, bool raw, Opener opener);
    ~ImageProvider();
    ImageProvider(const ImageProvider&) = delete;
    ImageProvider& operator=(const ImageProvider&) = delete;

    /// Returns the same image at every call; a second caller waits for the first. Empty if the file cannot be opened;
    /// the next call tries again. Exceptions of the opener reach the caller.
    [[nodiscard]] std::shared_ptr<Image> image();
    [[nodiscard]] std::filesystem::path filePath() const { return path; }
    [[nodiscard]] bool isRaw() const { return raw; }

private:
    struct Opening;

    std::shared_ptr<Image> held;
    std::filesystem::path path;
    std::unique_ptr<Opening> opening;
    bool raw = false;
};

} // namespace orvo
