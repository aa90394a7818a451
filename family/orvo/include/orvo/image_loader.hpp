/// Documents by the bytes that identify them: how an operation opens one picture without knowing where it comes from.
#pragma once

#include <orvo_common/export.hpp>
#include <orvo_core/image_data.hpp>
#include <orvo_core/image_metadata.hpp>

#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace orvo {

/// How a document is to be opened. Passed through by the operations that take one.
struct ORVO_EXPORT StateSettings
{
    std::string path;               ///< a file with the document's saved state; empty: none
    std::function<bool()> canceled; ///< true when opening is to stop; empty: it cannot be stopped
    std::string presets;            ///< presets of the raw development; empty: the defaults
};

/// Loaded documents. A document is known by the serialised bytes of its identifier; nonsense bytes name none. Every
/// member is usable from any thread.
class ORVO_EXPORT ImageLoader
{
public:
    /// Registers the picture file and returns the bytes that identify it. The pixels are read by open(). A file that
    /// is no picture gives bytes that name nothing; nothing is logged.
    [[nodiscard]] static std::vector<unsigned char> load(const std::filesystem::path& path);
    /// Upright size; (0, 0) when the bytes name no picture.
    [[nodiscard]] static _Size<int> getSize(const std::vector<unsigned char>& bytes);
    /// Releases what is held for the bytes.
    static void dispose(const std::vector<unsigned char>& bytes);
};

/// The developed picture in melissaRGB(); empty if the bytes name none, the file cannot be decoded, or `state` says
/// stop. `statePath`: presets of the raw development beside those of `state`.
[[nodiscard]] ORVO_EXPORT std::shared_ptr<const _ImageData<PixelRGB<float>>>
open(const std::vector<unsigned char>& bytes, const StateSettings& state, const std::filesystem::path& statePath);

/// A copy of the document's metadata that the caller may change; empty if the bytes name none.
[[nodiscard]] ORVO_EXPORT std::shared_ptr<ImageMetadata> copyMetadata(const std::vector<unsigned char>& bytes);

} // namespace orvo
