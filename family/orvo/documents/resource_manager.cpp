#include "documents/background_writer.hpp"
#include "documents/resource_file.hpp"

#include <orvo/resource_manager.hpp>
#include <orvo_logger/logstream.hpp>

#include <sys/stat.h>

#include <algorithm>
#include <any>
#include <functional>
#include <mutex>
#include <stdexcept>
#include <utility>
#include <vector>

namespace orvo {
namespace {

namespace fs = std::filesystem;

// A stored value: in memory, with its functions to write it to a file and read it back. `read` holds no samples.
struct Resource
{
    std::any value;
    std::function<void(ResourceFile&)> write;
    std::function<std::any(ResourceFile&)> read;
};

template <typename T>
Resource pictureResource(const std::shared_ptr<const _ImageData<T>>& data)
{
    using Loaded = std::shared_ptr<_ImageData<T>>;
    const std::size_t bytes = data->pixelCount() * sizeof(T);
    return {data, [data, bytes](ResourceFile& file) { file.write(data->data(), bytes); },
            [size = data->size(), profile = data->colorProfile(), bytes](ResourceFile& file) {
                const auto loaded = std::make_shared<_ImageData<T>>(size, profile);
                file.read(loaded->data(), bytes);
                return std::any(Loaded(loaded));
            }};
}

constexpr std::size_t kMaskTileSamples =
    static_cast<std::size_t>(TiledMaskImage::kTileSize) * static_cast<std::size_t>(TiledMaskImage::kTileSize);

// The tiles of a mask that have samples, and the values of the others.
struct MaskShape
{
    struct Place
    {
        bool hasSamples;
        float uniform;
    };
    _Size<int> size;
    std::vector<Place> places;
};

template <typename Visit>
void visitTiles(const TiledMaskImage& mask, const Visit& visit)
{
    for (int row = 0; row < mask.rows(); ++row)
        for (int column = 0; column < mask.columns(); ++column)
            visit(column, row);
}

Resource maskResource(const TiledMaskImage& source)
{
    const auto mask = std::make_shared<const TiledMaskImage>(source); // shares the tiles in their current state
    MaskShape shape{mask->size(), {}};
    visitTiles(*mask, [&](int column, int row) {
        const auto& tile = mask->tile(column, row);
        shape.places.push_back({tile.samples != nullptr, tile.uniform});
    });
    return {mask,
            [mask](ResourceFile& file) {
                visitTiles(*mask, [&](int column, int row) {
                    if (const auto& samples = mask->tile(column, row).samples)
                        file.write(samples->data(), kMaskTileSamples * sizeof(float));
                });
            },
            [shape = std::move(shape)](ResourceFile& file) {
                const auto loaded = std::make_shared<TiledMaskImage>(shape.size);
                auto place = shape.places.begin();
                visitTiles(*loaded, [&](int column, int row) {
                    if (place->hasSamples)
                        file.read(loaded->writableTile(column, row), kMaskTileSamples * sizeof(float));
                    else
                        loaded->setTile(column, row, {place->uniform, nullptr});
                    ++place;
                });
                return std::any(std::shared_ptr<TiledMaskImage>(loaded));
            }};
}

Resource tiledResource(const KepTiledImageData& source)
{
    using Picture = TiledImageData::Picture;
    const _Size<int> size = source.size();
    const auto profile = source.getColorProfile();
    const auto tiles = source.getTiles();
    std::vector<_Size<int>> sizes;
    for (const auto& tile : tiles)
        sizes.push_back(tile ? tile->size() : _Size<int>());
    const auto built = std::make_shared<KepTiledImageData>(size, profile);
    const int columns = (size.width + KepTiledImageData::kTileSize - 1) / KepTiledImageData::kTileSize;
    const auto put = [columns](KepTiledImageData& into, std::size_t index, std::shared_ptr<const Picture> tile) {
        into.setTile(static_cast<int>(index) % columns, static_cast<int>(index) / columns, std::move(tile));
    };
    for (std::size_t i = 0; i < tiles.size(); ++i)
        put(*built, i, tiles[i]);
    return {std::shared_ptr<const KepTiledImageData>(built),
            [tiles](ResourceFile& file) {
                for (const auto& tile : tiles)
                    if (tile)
                        file.write(tile->data(), tile->pixelCount() * sizeof(PixelRGB<float>));
            },
            [size, profile, sizes = std::move(sizes), put](ResourceFile& file) {
                const auto loaded = std::make_shared<KepTiledImageData>(size, profile);
                for (std::size_t i = 0; i < sizes.size(); ++i) {
                    if (sizes[i] == _Size<int>())
                        continue;
                    const auto tile = std::make_shared<Picture>(sizes[i], profile);
                    file.read(tile->data(), tile->pixelCount() * sizeof(PixelRGB<float>));
                    put(*loaded, i, tile);
                }
                return std::any(std::shared_ptr<KepTiledImageData>(loaded));
            }};
}

bool isFileName(const std::string& key)
{
    const auto allowed = [](char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' || c == '_' ||
               c == '.';
    };
    return !key.empty() && key.front() != '.' && std::all_of(key.begin(), key.end(), allowed);
}

} // namespace

struct ResourceManager::Store
{
    struct Entry
    {
        Resource resource;
        std::shared_future<void> done; // invalid if there is no folder
        fs::path path;                 // set once the file exists
    };

    fs::path directory;
    std::string name;
    std::mutex mutex; // guards the members below
    std::unordered_map<std::string, std::shared_ptr<Entry>> entries;
    unsigned long long filesNamed = 0;

    ~Store() { removeAll(); }

    // The entry of a key once its save has ended; empty if there is none.
    std::shared_ptr<Entry> settled(const std::string& key)
    {
        std::shared_ptr<Entry> entry;
        std::shared_future<void> done;
        {
            const std::lock_guard lock(mutex);
            const auto found = entries.find(key);
            if (found == entries.end())
                return nullptr;
            entry = found->second;
            done = entry->done;
        }
        if (done.valid())
            done.wait();
        return entry;
    }

    bool holds(const std::string& key, const std::shared_ptr<Entry>& entry)
    {
        const auto found = entries.find(key);
        return found != entries.end() && found->second == entry;
    }

    void write(const std::string& key, const std::shared_ptr<Entry>& entry, const fs::path& path)
    {
        {
            const std::lock_guard lock(mutex);
            if (!holds(key, entry))
                return; // cleared or replaced in the meantime
        }
        ::mkdir(directory.c_str(), 0700); // usually exists already; if mkdir fails, opening the file fails too
        ResourceFile file(path, ResourceFile::Use::Write);
        entry->resource.write(file);
        file.finish();
        Resource written; // destroyed outside of the lock
        const std::lock_guard lock(mutex);
        entry->path = path;
        std::swap(written.value, entry->resource.value);
        std::swap(written.write, entry->resource.write);
        if (!holds(key, entry))
            remove(*entry);
    }

    static void remove(Entry& entry)
    {
        std::error_code ignored;
        if (!entry.path.empty())
            fs::remove(entry.path, ignored);
        entry.path.clear();
    }

    // Takes all entries out; a write in progress then removes its own file.
    std::vector<std::shared_future<void>> removeAll()
    {
        std::unordered_map<std::string, std::shared_ptr<Entry>> dropped;
        std::vector<std::shared_future<void>> pending;
        {
            const std::lock_guard lock(mutex);
            dropped.swap(entries);
            for (const auto& [key, entry] : dropped) {
                remove(*entry);
                if (entry->done.valid())
                    pending.push_back(entry->done);
            }
        }
        return pending;
    }

    static std::shared_future<void> save(const std::shared_ptr<Store>& store, const std::string& key, Resource resource)
    {
        if (!isFileName(key))
            throw std::invalid_argument("ResourceManager::save: \"" + key + "\" cannot name a file");
        const auto entry = std::make_shared<Entry>();
        entry->resource = std::move(resource);
        fs::path path;
        std::shared_ptr<Entry> replaced;
        {
            const std::lock_guard lock(store->mutex);
            auto& place = store->entries[key];
            replaced = std::exchange(place, entry);
            if (replaced)
                remove(*replaced);
            // Numbered, so that the name differs from that of a file being replaced.
            path = store->directory / (store->name + std::to_string(store->filesNamed++) + "-" + key);
        }
        if (store->directory.empty()) {
            std::promise<void> kept;
            kept.set_value();
            return kept.get_future().share();
        }
        std::shared_future<void> done = BackgroundWriter::instance().run([store, key, entry, path] {
            try {
                store->write(key, entry, path);
            } catch (const std::exception& error) {
                LOG(__orvolog() << LogMessageType::Error << error.what() << "; it is kept in memory");
                throw;
            }
        });
        const std::lock_guard lock(store->mutex);
        entry->done = done;
        return done;
    }

    template <typename Value>
    Value load(const std::string& key, bool mayMiss = false)
    {
        const auto entry = settled(key);
        if (!entry) {
            if (mayMiss)
                return {};
            throw std::runtime_error("ResourceManager: nothing is saved under " + key);
        }
        std::any value;
        fs::path path;
        {
            const std::lock_guard lock(mutex);
            value = entry->resource.value;
            path = entry->path;
        }
        if (!value.has_value()) {
            ResourceFile file(path, ResourceFile::Use::Read);
            value = entry->resource.read(file);
        }
        return valueOf<Value>(key, value);
    }

    // The value in memory is const and shared, so the caller gets a copy.
    template <typename Value>
    static Value valueOf(const std::string& key, const std::any& value)
    {
        using Held = typename Value::element_type;
        if (const auto* const loaded = std::any_cast<Value>(&value))
            return *loaded;
        const auto* const kept = std::any_cast<std::shared_ptr<const Held>>(&value);
        if (kept == nullptr)
            throw std::runtime_error("ResourceManager: something else is saved under " + key);
        if constexpr (std::is_same_v<Held, TiledMaskImage>) {
            return std::make_shared<TiledMaskImage>(**kept);
        } else if constexpr (std::is_same_v<Held, KepTiledImageData>) {
            const auto copy = std::make_shared<KepTiledImageData>((*kept)->size(), (*kept)->getColorProfile());
            (*kept)->copyTo(copy);
            return copy;
        } else {
            return (*kept)->copy({});
        }
    }
};

ResourceManager::ResourceManager() : store(std::make_shared<Store>()) {}

ResourceManager::ResourceManager(fs::path directory, std::string name) : ResourceManager()
{
    store->directory = std::move(directory);
    store->name = std::move(name);
}

ResourceManager::~ResourceManager() = default;
ResourceManager::ResourceManager(const ResourceManager&) = default;
ResourceManager::ResourceManager(ResourceManager&&) noexcept = default;
ResourceManager& ResourceManager::operator=(const ResourceManager&) = default;
ResourceManager& ResourceManager::operator=(ResourceManager&&) noexcept = default;

namespace {

template <typename T>
const T& present(const std::shared_ptr<T>& data)
{
    if (!data)
        throw std::invalid_argument("ResourceManager::save: no data");
    return *data;
}

} // namespace

std::shared_future<void> ResourceManager::save(const std::string& key,
                                               const std::shared_ptr<const KepTiledImageData>& data)
{
    return Store::save(store, key, tiledResource(present(data)));
}

std::shared_future<void> ResourceManager::save(const std::string& key,
                                               const std::shared_ptr<const _ImageData<float>>& data)
{
    (void)present(data);
    return Store::save(store, key, pictureResource(data));
}

std::shared_future<void> ResourceManager::save(const std::string& key,
                                               const std::shared_ptr<const _ImageData<PixelRGB<float>>>& data)
{
    (void)present(data);
    return Store::save(store, key, pictureResource(data));
}

std::shared_future<void> ResourceManager::save(const std::string& key,
                                               const std::shared_ptr<const TiledMaskImage>& data)
{
    return Store::save(store, key, maskResource(present(data)));
}

std::shared_future<void> ResourceManager::saveDrawingState(const std::string& key, const DrawingState& state)
{
    return Store::save(store, key, maskResource(state.mask ? *state.mask : TiledMaskImage({0, 0})));
}

std::shared_ptr<_ImageData<float>> ResourceManager::loadMask(const std::string& key) const
{
    return store->load<std::shared_ptr<_ImageData<float>>>(key);
}

std::shared_ptr<TiledMaskImage> ResourceManager::loadTiledMaskImage(const std::string& key) const
{
    return store->load<std::shared_ptr<TiledMaskImage>>(key);
}

std::shared_ptr<KepTiledImageData> ResourceManager::loadTiledImageDataSol(const std::string& key) const
{
    return store->load<std::shared_ptr<KepTiledImageData>>(key);
}

std::shared_ptr<_ImageData<PixelRGB<float>>> ResourceManager::checkAndLoadImageData(const std::string& key, bool) const
{
    return store->load<std::shared_ptr<_ImageData<PixelRGB<float>>>>(key, true);
}

DrawingState ResourceManager::loadDrawingState(const std::string& key) const
{
    auto mask = store->load<std::shared_ptr<TiledMaskImage>>(key);
    if (mask->size() == _Size<int>())
        return {};
    return {std::move(mask)};
}

void ResourceManager::clearTempFiles()
{
    for (const auto& pending : store->removeAll())
        pending.wait();
    saves.clear();
}

std::string appendMaskExt(const std::string& text) { return text + ".msk"; }

} // namespace orvo
