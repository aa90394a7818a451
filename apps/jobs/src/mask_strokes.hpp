/// Brush strokes that paint a given mask.
#pragma once

#include <orvo_common/memory_manager.hpp>
#include <orvo_core/geometry.hpp>

#include <cstddef>
#include <vector>

namespace orvo::jobs {

/// Pixels that are marked, in rows without gaps.
class MarkedPixels
{
public:
    explicit MarkedPixels(_Size<int> size_)
        : extent(size_), marks(static_cast<std::size_t>(size_.width) * static_cast<std::size_t>(size_.height), true)
    {}
    [[nodiscard]] _Size<int> size() const { return extent; }
    [[nodiscard]] unsigned char* row(int y) const
    {
        return marks.data() + static_cast<std::ptrdiff_t>(y) * extent.width;
    }

private:
    _Size<int> extent;
    ManagedPlane<unsigned char> marks; // 0: not marked
};

/// A stroke of one radius with a hard, opaque brush.
struct MaskStroke
{
    float radius = 0.0f;
    std::vector<_Point<float>> points;
};

/// Strokes of the family's brush that paint exactly the marked pixels: 1 there, 0 elsewhere. Areas get discs as large
/// as fit, the rims between them lines one pixel wide, so that the number of strokes grows with the length of the
/// outline and not with the area. Peak: 8 bytes for each pixel.
[[nodiscard]] std::vector<MaskStroke> strokesOf(const MarkedPixels& marked);

} // namespace orvo::jobs
