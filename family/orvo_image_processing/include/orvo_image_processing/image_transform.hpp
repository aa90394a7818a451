/// Turning, scaling and shifting pictures.
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
    Affine = 1, ///< an AffineTransform leads from the canvas to the picture
};

/// A resampling: of a canvas, from which a transform leads to the picture, a part is shown at a size. A plain record.
struct ORVO_EXPORT ImageTransformSettings
{
    /// `sourceRect` in pixels of a canvas of `sourceSize`; the zero rectangle is all of it. `cropOfCanvas` and
    /// `optionOfCaller` are kept for the caller.
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

/// Draws what the settings describe. Catmull-Rom cubic between pixels and, where the picture shrinks, the mean over
/// each pixel's area. A shift by whole pixels and a turn by right angles copy bit by bit.
///
/// What lies outside the picture is transparent: alpha falls to 0 within a pixel of the edge, while the colours go on.
/// Beyond that it is white, so that a picture without alpha stands on white. Nothing is premultiplied.
class ORVO_EXPORT TransformComputer
{
public:
    explicit TransformComputer(const ImageTransformSettings& settings);

    /// The whole target at its size, as createTransformedRoi() takes it.
    [[nodiscard]] ResizeParameters getWorkingResizeParameters() const;

    /// The part `part.rect` of the target (zero: all) at `part.size` (zero: the part's own), with the profile of
    /// `picture`. Parallel over rows. Throws std::invalid_argument if `picture` has no pixels or a side of the result
    /// is negative. Peak: the result.
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
