/// The store of the tools for what is too large to be kept in memory.
#pragma once

#include <orvo_brush/drawing_controller.hpp>
#include <orvo_common/export.hpp>
#include <orvo_core/image_data.hpp>
#include <orvo_image_processing/kep_tiled_image_data.hpp>
#include <orvo_image_processing/tiled_mask_image.hpp>

#include <filesystem>
#include <future>
#include <memory>
#include <string>
#include <unordered_map>

namespace orvo {

/// The key of a new file: a text that generateUUID() made, with the ending of the files.
[[nodiscard]] ORVO_EXPORT std::string appendMaskExt(const std::string& text);

/// Temporary files by key. Copies share the files, which go with the last of them.
///
/// save() returns at once; the file is written in the background, one after the other. What cannot be written (a full
/// or read-only disk) stays in memory, where the loads find it: the future of the save then holds the error, which is
/// also logged, and nothing is lost. The samples must not change once they are saved; tiles are shared as they stand.
///
/// Loads wait for a save of the key that is under way. They throw std::runtime_error that names the key if nothing is
/// saved under it, if it holds something else, or if its file cannot be read. Usable from any thread, but for `saves`.
/// Peak: what is loaded.
class ORVO_EXPORT ResourceManager
{
public:
    /// Of no folder: what is saved stays in memory.
    ResourceManager();
    /// Files in `directory`, which is made (0700) if it is not there; their names begin with `name`.
    ResourceManager(std::filesystem::path directory, std::string name);
    ~ResourceManager();
    ResourceManager(const ResourceManager&);
    ResourceManager(ResourceManager&&) noexcept;
    ResourceManager& operator=(const ResourceManager&);
    ResourceManager& operator=(ResourceManager&&) noexcept;

    /// A former save of the key is replaced. Throw std::invalid_argument if `data` is empty or the key is no file name
    /// of letters, digits, '-', '_' and '.'.
    std::shared_future<void> save(const std::string& key, const std::shared_ptr<const KepTiledImageData>& data);
    std::shared_future<void> save(const std::string& key, const std::shared_ptr<const _ImageData<float>>& data);
    std::shared_future<void> save(const std::string& key,
                                  const std::shared_ptr<const _ImageData<PixelRGB<float>>>& data);
    std::shared_future<void> save(const std::string& key, const std::shared_ptr<const TiledMaskImage>& data);
    std::shared_future<void> saveDrawingState(const std::string& key, const DrawingState& state);

    [[nodiscard]] std::shared_ptr<_ImageData<float>> loadMask(const std::string& key) const;
    [[nodiscard]] std::shared_ptr<TiledMaskImage> loadTiledMaskImage(const std::string& key) const;
    [[nodiscard]] std::shared_ptr<KepTiledImageData> loadTiledImageDataSol(const std::string& key) const;
    /// Empty, instead of throwing, if nothing is saved under the key. `flag` is always true here.
    [[nodiscard]] std::shared_ptr<_ImageData<PixelRGB<float>>> checkAndLoadImageData(const std::string& key,
                                                                                     bool flag) const;
    [[nodiscard]] DrawingState loadDrawingState(const std::string& key) const;

    /// Removes the files of this manager; returns when none is left. Nothing is saved afterwards, and `saves` is empty.
    void clearTempFiles();

    /// The futures of the saves by key, kept by whoever saves.
    std::unordered_map<std::string, std::shared_future<void>> saves;

private:
    struct Store;
    std::shared_ptr<Store> store;
};

} // namespace orvo
