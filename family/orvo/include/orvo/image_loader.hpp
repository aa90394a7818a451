/// Documents identified by bytes, so that an operation can open a picture without knowing its origin.
#pragma once

#include <orvo_common/export.hpp>
#include <orvo_core/identifier.hpp>
#include <orvo_core/image.hpp>
#include <orvo_extensions/document/image_provider.hpp>

#include <cstddef>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace orvo {

/// How to open a document; operations pass it through.
struct ORVO_EXPORT StateSettings
{
    std::string path;               ///< file with the document's saved state; picture files have none
    std::function<bool()> canceled; ///< returns true to stop opening; empty: opening cannot be stopped
    std::string composition;        ///< a saved composition (Composer::load()); empty: no edits
};

/// Loaded documents, identified by the serialised bytes of an Identifier; other bytes match none. All members are
/// usable from any thread.
class ORVO_EXPORT ImageLoader
{
public:
    /// Registers the picture file and returns new bytes that identify it. Reads the metadata but not the pixels, which
    /// open() reads. Returns no bytes, and logs nothing, if the file does not begin like a picture; for unreadable
    /// metadata ImageReader logs the reason.
    [[nodiscard]] static std::vector<unsigned char> load(const std::filesystem::path& path);
    /// Upright size; (0, 0) if the bytes match no picture.
    [[nodiscard]] static _Size<int> getSize(const std::vector<unsigned char>& bytes);
    /// Releases the document; the bytes are invalid afterwards.
    static void dispose(const std::vector<unsigned char>& bytes);
    /// The number of documents that are loaded: what an operation leaves behind.
    [[nodiscard]] static std::size_t documentCount();
    /// The provider of a loaded document, the same at every call; empty if the identifier is empty or unknown.
    [[nodiscard]] static std::shared_ptr<ImageProvider> get(const std::shared_ptr<const Identifier>& identifier);
};

/// The picture in melissaRGB(), upright, raw files developed with the tone that the raw reader suggests. Empty if the
/// bytes match no document, if `state` requests a stop, if the file was written again since it was loaded, or if it
/// cannot be decoded (ImageReader logs the reason); the document is then disposed of, since it is unusable. Disposes of
/// it too if open() throws: an exception of `state.canceled`, or std::bad_alloc. A saved state in `state` is not
/// applied, with a warning; `statePath` is for documents with presets, which picture files never have. Any thread;
/// several threads may open the same document. Peak: that of ImageReader::open().
[[nodiscard]] ORVO_EXPORT std::shared_ptr<const _ImageData<PixelRGB<float>>>
open(const std::vector<unsigned char>& bytes, const StateSettings& state, const std::filesystem::path& statePath);

/// A copy of the document's metadata, free to change; empty if the bytes match none. It describes the result of open():
/// raw files have the developed mark.
[[nodiscard]] ORVO_EXPORT std::shared_ptr<ImageMetadata> copyMetadata(const std::vector<unsigned char>& bytes);

} // namespace orvo
