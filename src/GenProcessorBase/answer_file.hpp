/// Reading a service's answer from a file.
#pragma once

#include <orvo_core/image_data.hpp>

#include <filesystem>
#include <memory>

namespace orvo {

/// The picture of a file, as the loader opens it; empty if it cannot be read. The loader drops it again.
[[nodiscard]] std::shared_ptr<_ImageData<PixelRGB<float>>> loadAnswer(const std::filesystem::path& file);

} // namespace orvo
