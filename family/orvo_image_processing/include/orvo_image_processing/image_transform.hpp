/// Rotates, scales and shifts pictures.
#pragma once

#include <orvo_common/export.hpp>
#include <orvo_core/affine_transform.hpp>
#include <orvo_core/crop_description.hpp>
#include <orvo_core/image_data.hpp>

#include <cstdint>
#include <memory>
#include <variant>

namespace orvo {

enum class ImageTransformType : std::int32_t
{
    None = 0,   ///< the canvas is the picture
    Affine = 1, ///< an AffineTransform maps the canvas to the picture
};

/// A resampling: shows a part of a canvas at a size; a transform maps the canvas to the picture. A plain record.
struct ORVO_EXPORT ImageTransformSettings
{
    /// `sourceRect` in pixels of a canvas of `sourceSize`; the zero rectangle is the whole canvas. `cropOfCanvas` and
    /// `optionOfCaller` are stored for the caller.
    ImageTransformSettings(_Size<int> sourceSize, _Rect<float> sourceRect, _Size<int> targetSize,
                           ImageTransformType type, std::variant<AffineTransform> transform,
                           CropDescription cropOfCanvas, int optionOfCaller);

    _Size<int> sourceSize;
    _Rect<float> sourceRect;
    _Size<int> targetSize;
    ImageTransformType type;
    std::variant<AffineTransform> transform;
    CropDescription crop;
    int option;
};

/// Renders the settings. Uses Catmull-Rom interpolation and, when shrinking, the mean over each pixel's area. Shifts by
/// whole pixels and rotations by multiples of 90 degrees are bit-exact.
///
/// The outside of the picture is transparent: alpha falls to 0 within a pixel of the edge while the colours continue.
/// Farther out it is white, so a picture without alpha gets a white background. Nothing is premultiplied.
class ORVO_EXPORT TransformComputer
{
public:
    explicit TransformComputer(const ImageTransformSettings& settings);

    /// The whole target at its size, as the parameter of createTransformedRoi().
    [[nodiscard]] ResizeParameters getWorkingResizeParameters() const;

    /// The part `part.rect` of the target (zero: all) at `part.size` (zero: that of the part), in the profile of
    /// `picture`. Parallel over rows. Throws std::invalid_argument if `picture` is empty or a side of the result is
    /// negative. Peak: the result.
    [[nodiscard]] std::shared_ptr<_ImageData<PixelRGB<float>>>
    createTransformedRoi(const _ImageData<PixelRGB<float>>& picture, const ResizeParameters& part) const;
    [[nodiscard]] std::shared_ptr<_ImageData<PixelRGBA<float>>>
    createTransformedRoi(const _ImageData<PixelRGBA<float>>& picture, const ResizeParameters& part) const;

private:
    template <typename Pixel>
    [[nodiscard]] std::shared_ptr<_ImageData<Pixel>> transformed(const _ImageData<Pixel>& picture,
                                                                 const ResizeParameters& part) const;

    _Size<int> targetSize;
    AffineTransform pictureFromTarget;
};

} // namespace orvo
