#include <orvo_extensions/document/image_provider.hpp>

#include <mutex>
#include <utility>

namespace orvo {

struct ImageProvider::Opening
{
    std::mutex mutex; // locked while the file is opened, so that it is opened once
    Opener open;
};

ImageProvider::ImageProvider(std::filesystem::path file, bool isRawFile, Opener opener)
    : path(std::move(file)), opening(std::make_unique<Opening>()), raw(isRawFile)
{
    opening->open = std::move(opener);
}

ImageProvider::~ImageProvider() = default;

std::shared_ptr<Image> ImageProvider::image()
{
    const std::lock_guard lock(opening->mutex);
    if (!held && opening->open)
        held = opening->open(path);
    return held;
}

} // namespace orvo
