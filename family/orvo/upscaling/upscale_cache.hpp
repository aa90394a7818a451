/// Caches results of upscaling.
#pragma once

#include <orvo_core/image_data.hpp>

#include <cstddef>
#include <list>
#include <memory>
#include <mutex>
#include <string>

namespace orvo::details {

/// Pictures by name, most recently used first. Usable from any thread. Stores and returns copies, because callers may
/// change their pictures.
class UpscaleCache
{
public:
    using Picture = _ImageData<PixelRGB<float>>;

    /// Limit for the pixels of all pictures together.
    static constexpr std::size_t kMostBytes = std::size_t{256} << 20;

    static UpscaleCache& instance();

    /// A copy; empty if there is none.
    [[nodiscard]] std::shared_ptr<Picture> find(const std::string& name);
    /// Keeps a copy, unless the picture exceeds the limit.
    void keep(const std::string& name, const Picture& picture);
    void clear();

private:
    struct Entry
    {
        std::string name;
        std::shared_ptr<const Picture> picture;
    };
    std::mutex mutex;
    std::list<Entry> entries;
};

} // namespace orvo::details
