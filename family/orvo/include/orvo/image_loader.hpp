/// Documents by identifying bytes: an operation opens a picture without knowing where it comes from.
#pragma once

#include <orvo_common/export.hpp>
#include <orvo_core/identifier.hpp>
#include <orvo_core/image.hpp>
#include <orvo_extensions/document/image_provider.hpp>

#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace orvo {

/// How to open a document. Passed through by the operations that take one.
struct ORVO_EXPORT StateSettings
{
    std::string path;               ///< a file with the document's saved state; picture files have none
    std::function<bool()> canceled; ///< returns true to stop opening; empty: opening cannot be stopped
    std::string composition;        ///< a saved composition (Composer::load()); empty: the picture as it is
};

/// Loaded documents. The serialised bytes of its identifier name a document; other bytes name none. Every member is
/// usable from any thread.
class ORVO_EXPORT ImageLoader
{
public:
    /// Registers the picture file and returns the bytes that identify it, new ones for each call. Reads the metadata,
    /// but not the pixels; open() does that. Returns no bytes, and logs nothing, for a file that does not begin like a
    /// picture; for a picture with unreadable metadata ImageReader logs the reason.
    [[nodiscard]] static std::vector<unsigned char> load(const std::filesystem::path& path);
    /// Upright size; (0, 0) when the bytes name no picture.
    [[nodiscard]] static _Size<int> getSize(const std::vector<unsigned char>& bytes);
    /// Releases the document; the bytes are invalid afterwards.
    static void dispose(const std::vector<unsigned char>& bytes);
    /// The provider of a loaded document, the same at every call; empty if the identifier is, or names none.
    [[nodiscard]] static std::shared_ptr<ImageProvider> get(const std::shared_ptr<const Identifier>& identifier);
};

/// The picture in melissaRGB(), upright, raw files developed with the tone that the raw reader suggests. Empty if the
/// bytes name no document, if `state` requests a stop, or if the file cannot be decoded (ImageReader logs the reason);
/// the document is then disposed of, because it is of no further use. The same happens if open() throws: whatever
/// `state.canceled` throws, or std::bad_alloc. A saved state in `state` is not applied here, with a warning; the file
/// `statePath` applies to documents with presets, a picture file has none. Any thread; several threads may open the
/// same document. Peak: as ImageReader::open().
[[nodiscard]] ORVO_EXPORT std::shared_ptr<const _ImageData<PixelRGB<float>>>
open(const std::vector<unsigned char>& bytes, const StateSettings& state, const std::filesystem::path& statePath);

/// A copy of the document's metadata that the caller may change; empty if the bytes name none. It describes the result
/// of open(): raw files have the developed mark.
[[nodiscard]] ORVO_EXPORT std::shared_ptr<ImageMetadata> copyMetadata(const std::vector<unsigned char>& bytes);

} // namespace orvo
