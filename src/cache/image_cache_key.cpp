#include "cache/image_cache_key.hpp"

#include <utility>

namespace orvo {

ImageCacheKey::ImageCacheKey(_Rect<int> roi_, _Size<int> size_, std::string id_)
    : roi(roi_), size(size_), id(std::move(id_))
{}

ImageCacheKey::~ImageCacheKey() = default;

} // namespace orvo
