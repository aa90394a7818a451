/// The pixels of a picture to paint.
#pragma once

#include <orvo_common/memory_manager.hpp>
#include <orvo_core/geometry.hpp>
#include <orvo_core/image_data.hpp>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>

namespace orvo::details {

/// What a pixel is to a filling.
enum class Place : std::uint8_t
{
    Known,
    Hole,    ///< painted
    Outside, ///< beyond the picture or its searched part, and in no patch
};

/// The pixels of a picture marked by a mask.
class Hole
{
public:
    /// Throws FailureError if picture or mask is empty, or the mask marks every pixel.
    Hole(_Size<int> picture, const _ImageData<float>& mask);
    /// In a picture that may not fill its rectangle, by the place of every pixel. `placeAt` is called on any thread.
    Hole(_Size<int> picture, const std::function<Place(int x, int y)>& placeAt);

    [[nodiscard]] bool empty() const { return count == 0; }
    [[nodiscard]] std::size_t pixelCount() const { return count; }
    [[nodiscard]] _Size<int> size() const { return extent; }
    /// The bounding box.
    [[nodiscard]] const _Rect<int>& bounds() const { return box; }
    /// 1 in the hole, 0 elsewhere.
    [[nodiscard]] const std::uint8_t* row(int y) const { return marks.data() + rowOffset(y); }
    /// False beyond the content of a picture that does not fill its rectangle.
    [[nodiscard]] bool hasContent(int x, int y) const
    {
        return x >= 0 && y >= 0 && x < extent.width && y < extent.height &&
               (!lacks || (*lacks)[rowOffset(y) + static_cast<std::size_t>(x)] == 0);
    }

private:
    [[nodiscard]] std::size_t rowOffset(int y) const
    {
        return static_cast<std::size_t>(y) * static_cast<std::size_t>(extent.width);
    }
    void measure();

    _Size<int> extent;
    ManagedPlane<std::uint8_t> marks;
    std::optional<ManagedPlane<std::uint8_t>> lacks; // 1 where there is no content
    _Rect<int> box;
    std::size_t count = 0;
};

} // namespace orvo::details
