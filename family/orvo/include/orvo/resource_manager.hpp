/// Disk storage for the large data of the tools.
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

/// The key of a new file: `text`, from generateUUID(), with the file extension.
[[nodiscard]] ORVO_EXPORT std::string appendMaskExt(const std::string& text);

/// Temporary files by key. Copies share the files; the last copy removes them.
///
/// save() returns at once; a background thread writes one file after the other. Data that cannot be written (a full or
/// read-only disk) stays in memory, where loads find it; the future of the save then holds the error, which is also
/// logged. Saved samples must not change, since their tiles are shared.
///
/// Loads wait for a pending save of the key. They throw std::runtime_error that names the key if nothing is saved under
/// it, if it holds another type, or if its file cannot be read. Usable from any thread, except `saves`. Peak: the
/// loaded data.
class ORVO_EXPORT ResourceManager
{
public:
    /// Without a folder: saved data stays in memory.
    ResourceManager();
    /// Puts files in `directory`, creating it with mode 0700 if missing; their names begin with `name`.
    ResourceManager(std::filesystem::path directory, std::string name);
    ~ResourceManager();
    ResourceManager(const ResourceManager&);
    ResourceManager(ResourceManager&&) noexcept;
    ResourceManager& operator=(const ResourceManager&);
    ResourceManager& operator=(ResourceManager&&) noexcept;

    /// Replaces an earlier save of the key. Throw std::invalid_argument if `data` is empty or the key is not a file
    /// name of letters, digits, '-', '_' and '.'.
    std::shared_future<void> save(const std::string& key, const std::shared_ptr<const KepTiledImageData>& data);
    std::shared_future<void> save(const std::string& key, const std::shared_ptr<const _ImageData<float>>& data);
    std::shared_future<void> save(const std::string& key,
                                  const std::shared_ptr<const _ImageData<PixelRGB<float>>>& data);
    std::shared_future<void> save(const std::string& key, const std::shared_ptr<const TiledMaskImage>& data);
    std::shared_future<void> saveDrawingState(const std::string& key, const DrawingState& state);

    [[nodiscard]] std::shared_ptr<_ImageData<float>> loadMask(const std::string& key) const;
    [[nodiscard]] std::shared_ptr<TiledMaskImage> loadTiledMaskImage(const std::string& key) const;
    [[nodiscard]] std::shared_ptr<KepTiledImageData> loadTiledImageDataSol(const std::string& key) const;
    /// Returns empty, instead of throwing, if nothing is saved under the key. `flag` is always true here.
    [[nodiscard]] std::shared_ptr<_ImageData<PixelRGB<float>>> checkAndLoadImageData(const std::string& key,
                                                                                     bool flag) const;
    [[nodiscard]] DrawingState loadDrawingState(const std::string& key) const;

    /// Removes all saved data and clears `saves`. No file of this manager is left when it returns.
    void clearTempFiles();

    /// The futures of the saves by key, filled in by the callers of save().
    std::unordered_map<std::string, std::shared_future<void>> saves;

private:
    struct Store;
    std::shared_ptr<Store> store;
};

} // namespace orvo
