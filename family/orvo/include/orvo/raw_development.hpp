/// Develops raw frames: from linear light to the working space.
#pragma once

#include <orvo_common/export.hpp>
#include <orvo_core/image_data.hpp>
#include <orvo_core/image_metadata.hpp>

#include <functional>
#include <memory>

namespace orvo {

using PicturePointer = std::shared_ptr<_ImageData<PixelRGB<float>>>;

/// Develops a raw frame in place for merging: linearMelissaRGB() in, melissaRGB() out. `exposure` is a shift in EV:
/// one more doubles linear mid-tones. Clipped highlights are recovered where a channel still has data and approach
/// white smoothly; the tone curve keeps mid-tones linear, so that the rungs of a ladder match: linear for tones below
/// 0.7 of the sensor's linear range that end below 0.7, C1 and increasing everywhere. Areas that the sensor clipped
/// become neutral and follow a negative exposure only in part, so that they are not gray in the dark rungs. Non-finite
/// values give finite ones. With `chromatic` lateral chromatic aberration is corrected first, even if marked as
/// corrected, because several copies of a frame may be developed. `metadata` supplies the baseline exposure. Does
/// nothing to a picture that is not linear, such as a developed one. Any thread; parallel; bit-identical for any
/// number of threads. Needs no plane, with `chromatic` one of floats.
ORVO_EXPORT void develop_for_hdr(PicturePointer& image, const std::shared_ptr<const ImageMetadata>& metadata,
                                 const std::shared_ptr<AdditionalRawMetadata>& rawMetadata, float exposure,
                                 bool chromatic);

/// A small version of a linear picture, on which the tone of a finished look can be judged: at most 512 pixels wide,
/// its height rounded down, at least 1.
[[nodiscard]] ORVO_EXPORT PicturePointer toneThumbnail(const _ImageData<PixelRGB<float>>& picture);

/// Development for a finished look.
class ORVO_EXPORT RawImageDevelop
{
public:
    using ThumbnailGetter = std::function<PicturePointer()>;

    /// Keeps the white balance of the pixels, without a shift of exposure.
    RawImageDevelop();
    /// Changes the white balance to `temperature` in kelvin and `tint` (see ImageMetadata), for pixels whose metadata
    /// have the camera's white balance, and adds `exposure` in EV to all suggestions. A temperature of 0 keeps the
    /// white balance.
    RawImageDevelop(float temperature, float tint, float exposure);

    /// Develops `source` (linearMelissaRGB()) into `target` (melissaRGB()), which may be the same pointer. `thumbnail`
    /// is not called: the look depends on the settings alone, so that frames of one scene agree. `tone`: EV that the
    /// raw reader suggests. `strength` 0..1: how much of the suggestion is applied. `rect`: the part of the source, the
    /// zero rectangle for all. `flag` selects the neutral tone curve instead of the contrasty one. `cancel`, polled at
    /// the start and before the first pixel, leaves the target unchanged when true. Unless `rect` is the whole
    /// source, the target is replaced by a new picture. A source that is not linear is already developed: its part is
    /// copied.
    void develop(const PicturePointer& source, PicturePointer& target, const ThumbnailGetter& thumbnail,
                 const std::shared_ptr<const ImageMetadata>& metadata, float tone, float strength, _Rect<int> rect,
                 bool flag, const std::function<bool()>& cancel) const;

private:
    float wantedTemperature = 0.0f;
    float wantedTint = 0.0f;
    float extraExposure = 0.0f;
};

} // namespace orvo
