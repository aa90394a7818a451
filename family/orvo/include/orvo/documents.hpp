/// Documents as images.
#pragma once

#include <orvo/composer.hpp>
#include <orvo/image_loader.hpp>
#include <orvo_common/export.hpp>
#include <orvo_core/image.hpp>

#include <filesystem>
#include <memory>

namespace orvo {

/// The picture file, with its edits applied where `settings` holds a saved composition, otherwise as it is. A
/// composition that cannot be applied is logged as a warning, and the picture comes as it is. Throws std::runtime_error
/// that names the file if it cannot be opened. Peak: as open(), and Composer's export.
[[nodiscard]] ORVO_EXPORT std::shared_ptr<Image>
openNoEmpty(const std::filesystem::path& path, const StateSettings& settings, const std::filesystem::path& presetsPath);

/// The composition at its own size. Throws std::invalid_argument if there is none, std::runtime_error if it has no
/// layer.
[[nodiscard]] ORVO_EXPORT std::shared_ptr<Image> exportFromComposer(const std::shared_ptr<Composer>& composer);

} // namespace orvo
