/// A crop: a rectangle of a picture, turned about its centre.
#pragma once

#include <orvo_common/export.hpp>
#include <orvo_core/affine_transform.hpp>
#include <orvo_core/geometry.hpp>

namespace orvo {

/// A plain record; the default means no crop.
struct ORVO_EXPORT CropDescription
{
    float angle = 0.0f;       ///< radians, clockwise (the picture's y axis points down): rotates the rectangle, not the
                              ///< picture
    _Rect<int> rect;          ///< before rotation, in pixels of the picture
    float sourceWidth = 0.0f; ///< the size that `rect` refers to, for the application; 0: unknown
    float sourceHeight = 0.0f;
    float option = 0.0f; ///< stored for the application
    float scaleX = 1.0f; ///< getCropRect() multiplies `rect` by these
    float scaleY = 1.0f;

    bool operator==(const CropDescription&) const = default;

    /// `rect` scaled by the two factors, each value truncated and limited to the range of an int; NaN gives 0.
    [[nodiscard]] _Rect<int> getCropRect() const;
    /// Maps a canvas of `size` that shows the crop upright to the picture: getCropRect() rotated by the angle about its
    /// centre and scaled to the canvas. Right angles give exact integers.
    [[nodiscard]] AffineTransform getAffineTransformForCanvas(const _Size<int>& size) const;
};

} // namespace orvo
