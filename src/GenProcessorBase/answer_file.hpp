/// Reads a service's answer from a file.
#pragma once

#include <orvo_core/image_data.hpp>

#include <filesystem>
#include <memory>

namespace orvo {

/// The picture of a file, as opened by the loader, which drops it afterwards; empty if it cannot be read.
[[nodiscard]] std::shared_ptr<_ImageData<PixelRGB<float>>> loadAnswer(const std::filesystem::path& file);

} // namespace orvo
