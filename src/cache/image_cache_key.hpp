/// The identity of a rendered view.
#pragma once

#include <orvo_core/geometry.hpp>

#include <string>

namespace orvo {

struct ImageCacheKey
{
    ImageCacheKey(_Rect<int> roi_, _Size<int> size_, std::string id_);
    ImageCacheKey(const ImageCacheKey&) = default;
    ImageCacheKey(ImageCacheKey&&) noexcept = default;
    ImageCacheKey& operator=(const ImageCacheKey&) = default;
    ImageCacheKey& operator=(ImageCacheKey&&) noexcept = default;
    virtual ~ImageCacheKey();

    _Rect<int> roi;
    _Size<int> size;
    std::string id; ///< of the content and its display settings

    bool operator==(const ImageCacheKey& other) const
    {
        return roi == other.roi && size == other.size && id == other.id;
    }
};

} // namespace orvo
