#include "upscaling/upscale_cache.hpp"

#include <algorithm>

namespace orvo::details {
namespace {

std::size_t bytesOf(const UpscaleCache::Picture& picture) { return picture.pixelCount() * sizeof(PixelRGB<float>); }

} // namespace

UpscaleCache& UpscaleCache::instance()
{
    static UpscaleCache cache;
    return cache;
}

std::shared_ptr<UpscaleCache::Picture> UpscaleCache::find(const std::string& name)
{
    std::shared_ptr<const Picture> kept;
    {
        const std::lock_guard lock(mutex);
        const auto entry =
            std::find_if(entries.begin(), entries.end(), [&](const Entry& each) { return each.name == name; });
        if (entry == entries.end())
            return nullptr;
        entries.splice(entries.begin(), entries, entry);
        kept = entry->picture;
    }
    return kept->copy({});
}

void UpscaleCache::keep(const std::string& name, const Picture& picture)
{
    if (bytesOf(picture) > kMostBytes)
        return;
    const std::shared_ptr<const Picture> copy = picture.copy({});
    const std::lock_guard lock(mutex);
    entries.remove_if([&](const Entry& each) { return each.name == name; });
    entries.push_front({name, copy});
    std::size_t bytes = 0;
    auto last = entries.begin();
    while (last != entries.end() && bytes + bytesOf(*last->picture) <= kMostBytes) {
        bytes += bytesOf(*last->picture);
        ++last;
    }
    entries.erase(last, entries.end());
}

void UpscaleCache::clear()
{
    const std::lock_guard lock(mutex);
    entries.clear();
}

} // namespace orvo::details
