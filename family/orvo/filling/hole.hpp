/// The pixels of a picture to paint.
#pragma once

#include <orvo_common/memory_manager.hpp>
#include <orvo_core/geometry.hpp>
#include <orvo_core/image_data.hpp>

#include <cstddef>
#include <cstdint>

namespace orvo::details {

/// The pixels of a picture marked by a mask.
class Hole
{
public:
    /// Throws FailureError if picture or mask is empty, or the mask marks every pixel.
    Hole(_Size<int> picture, const _ImageData<float>& mask);

    [[nodiscard]] bool empty() const { return count == 0; }
    [[nodiscard]] std::size_t pixelCount() const { return count; }
    [[nodiscard]] _Size<int> size() const { return extent; }
    /// The bounding box.
    [[nodiscard]] const _Rect<int>& bounds() const { return box; }
    /// 1 in the hole, 0 elsewhere.
    [[nodiscard]] const std::uint8_t* row(int y) const
    {
        return marks.data() + static_cast<std::size_t>(y) * static_cast<std::size_t>(extent.width);
    }

private:
    _Size<int> extent;
    ManagedPlane<std::uint8_t> marks;
    _Rect<int> box;
    std::size_t count = 0;
};

} // namespace orvo::details
