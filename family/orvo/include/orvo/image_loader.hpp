/// Documents by the bytes that identify them: how an operation opens one picture without knowing where it comes from.
#pragma once

#include <orvo_common/export.hpp>
#include <orvo_core/identifier.hpp>
#include <orvo_core/image.hpp>

#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace orvo {

/// How a document is to be opened. Passed through by the operations that take one.
struct ORVO_EXPORT StateSettings
{
    std::string path;               ///< a file with the document's saved state; picture files have none
    std::function<bool()> canceled; ///< true when opening is to stop; empty: it cannot be stopped
    std::string composition;        ///< a saved composition (Composer::load()); empty: the picture as it is
};

class ImageProvider;

/// Loaded documents. A document is known by the serialised bytes of its identifier; nonsense bytes name none. Every
/// member is usable from any thread.
class ORVO_EXPORT ImageLoader
{
public:
    /// Registers the picture file and returns the bytes that identify it, new ones at each call. Metadata are read, the
    /// pixels are not; open() does that. What does not begin like a picture gives no bytes, and nothing is logged; of a
    /// picture whose metadata cannot be read ImageReader tells why.
    [[nodiscard]] static std::vector<unsigned char> load(const std::filesystem::path& path);
    /// Upright size; (0, 0) when the bytes name no picture.
    [[nodiscard]] static _Size<int> getSize(const std::vector<unsigned char>& bytes);
    /// Releases what is held for the bytes, which name nothing afterwards.
    static void dispose(const std::vector<unsigned char>& bytes);
    /// The provider of a loaded document, the same at every call; empty if the identifier is, or names none.
    [[nodiscard]] static std::shared_ptr<ImageProvider> get(const std::shared_ptr<const Identifier>& identifier);
};

/// The picture in melissaRGB(), upright, raw files developed with the tone that the raw reader suggests. Empty if the
/// bytes name none, if `state` says stop, or if the file cannot be decoded; in the last case ImageReader logs why, and
/// the bytes are disposed of, since nothing can be done with them any more; they are, too, where it throws, which what
/// `state.canceled` throws and a lack of memory do. A composition in `state` is not applied here; the file `statePath`
/// goes to documents that have presets, a picture file has none. Any thread; the same document may be opened from
/// several.
/// Peak: as ImageReader::open().
[[nodiscard]] ORVO_EXPORT std::shared_ptr<const _ImageData<PixelRGB<float>>>
open(const std::vector<unsigned char>& bytes, const StateSettings& state, const std::filesystem::path& statePath);

/// A copy of the document's metadata that the caller may change; empty if the bytes name none. They describe what
/// open() gives: raw files carry the developed mark.
[[nodiscard]] ORVO_EXPORT std::shared_ptr<ImageMetadata> copyMetadata(const std::vector<unsigned char>& bytes);

/// Access to one loaded document. Usable from any thread.
class ORVO_EXPORT ImageProvider
{
public:
    /// For ImageLoader.
    ImageProvider(std::vector<unsigned char> bytes, std::filesystem::path path, bool raw);

    [[nodiscard]] std::filesystem::path filePath() const { return path; }
    /// A raw camera file.
    [[nodiscard]] bool isRaw() const { return raw; }
    /// The one image of the document, opened at the first call as open() does; empty if it cannot be decoded or the
    /// document has been disposed of before. The provider keeps it.
    [[nodiscard]] std::shared_ptr<Image> image();

private:
    const std::vector<unsigned char> bytes;
    const std::filesystem::path path;
    const bool raw;
    std::mutex mutex; // guards what follows
    std::shared_ptr<Image> opened;
};

} // namespace orvo
