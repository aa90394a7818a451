/// What effects keep between renders.
#pragma once

#include <orvo_core/image_data.hpp>

#include <cstdint>
#include <memory>
#include <string>

namespace orvo {

/// The place of one effect's intermediate result. The values belong to the effects.
enum class CacheKeyIndex : std::int32_t
{
};

/// An intermediate result and what it was made of.
struct CacheObject
{
    std::string id; ///< changes with what the result depends on
    std::shared_ptr<const _ImageData<PixelRGB<float>>> picture;
};

} // namespace orvo
