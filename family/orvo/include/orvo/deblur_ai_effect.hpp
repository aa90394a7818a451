/// Sharpening of faces.
#pragma once

#include <orvo_common/export.hpp>
#include <orvo_core/image_data.hpp>

#include <atomic>
#include <memory>
#include <string>

namespace orvo {

class ORVO_EXPORT DeblurAIEffect
{
public:
    /// Finds faces and sharpens them; returns a new picture.
    [[nodiscard]] static std::shared_ptr<_ImageData<PixelRGB<float>>>
    deblurFaces(const std::string& id, const std::shared_ptr<const _ImageData<PixelRGB<float>>>& image, float amount,
                bool flagA, bool flagB, const std::atomic<bool>* cancel);
};

} // namespace orvo
