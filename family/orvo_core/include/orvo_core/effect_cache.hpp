/// Intermediate results that effects cache between renders.
#pragma once

#include <orvo_core/image_data.hpp>

#include <cstdint>
#include <memory>
#include <string>

namespace orvo {

/// The cache slot of an effect's intermediate result. The values belong to the effects.
enum class CacheKeyIndex : std::int32_t
{
};

/// An intermediate result and the id of its inputs.
struct CacheObject
{
    std::string id; ///< changes with the inputs of the result
    std::shared_ptr<const _ImageData<PixelRGB<float>>> picture;
};

} // namespace orvo
