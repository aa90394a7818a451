/// Documents as images.
#pragma once

#include <orvo/composer.hpp>
#include <orvo/image_loader.hpp>
#include <orvo_common/export.hpp>
#include <orvo_core/image.hpp>

#include <filesystem>
#include <memory>

namespace orvo {

/// Opens the picture file and applies the edits if `settings` holds a saved composition. If that fails, logs a warning
/// and returns the picture without edits. Throws std::runtime_error that names the file if it cannot be opened. Peak:
/// that of open() and of Composer's export.
[[nodiscard]] ORVO_EXPORT std::shared_ptr<Image>
openNoEmpty(const std::filesystem::path& path, const StateSettings& settings, const std::filesystem::path& presetsPath);

/// Renders the composition at its own size. Throws std::invalid_argument on an empty pointer, std::runtime_error if it
/// has no layer.
[[nodiscard]] ORVO_EXPORT std::shared_ptr<Image> exportFromComposer(const std::shared_ptr<Composer>& composer);

} // namespace orvo
