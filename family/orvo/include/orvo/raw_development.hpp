/// Development of raw frames: from linear light to the working space.
#pragma once

#include <orvo_common/export.hpp>
#include <orvo_core/image_data.hpp>
#include <orvo_core/image_metadata.hpp>

#include <functional>
#include <memory>

namespace orvo {

using PicturePointer = std::shared_ptr<_ImageData<PixelRGB<float>>>;

/// Develops a raw frame in place for merging: linearMelissaRGB() in, melissaRGB() out. `exposure` is a shift in EV:
/// one more doubles linear mid-tones. Clipped highlights are recovered where a channel still has them and run
/// smoothly into white; the tone curve leaves mid-tones linear, so that rungs of a ladder fit each other: straight for
/// tones below 0.7 of the sensor's linear range that end below 0.7, C1 and rising everywhere. What the sensor clipped
/// becomes neutral and follows a negative exposure only in part, so that it is no gray in the dark rungs. Values that
/// are not finite give finite ones. With `chromatic` lateral chromatic aberration is corrected first, whether marked as
/// dealt with or not, since several copies of a frame may be developed. `metadata` gives the baseline exposure. Does
/// nothing to a picture that is not linear, such as one already developed. Any thread; parallel; the same bits for any
/// number of threads. Needs no plane, with `chromatic` one of floats.
ORVO_EXPORT void develop_for_hdr(PicturePointer& image, const std::shared_ptr<const ImageMetadata>& metadata,
                                 const std::shared_ptr<AdditionalRawMetadata>& rawMetadata, float exposure,
                                 bool chromatic);

/// Development for a finished look.
class ORVO_EXPORT RawImageDevelop
{
public:
    using ThumbnailGetter = std::function<PicturePointer()>;

    /// The white balance that is in the pixels, and no shift of exposure.
    RawImageDevelop();
    /// Another white balance, in kelvin and as tint (see ImageMetadata), for pixels whose camera's one the metadata
    /// tell, and `exposure` in EV on top of all that is suggested. A temperature of 0 leaves the white balance.
    RawImageDevelop(float temperature, float tint, float exposure);

    /// Develops `source` (linearMelissaRGB()) into `target` (melissaRGB()), which may be the same pointer. `thumbnail`
    /// is asked for a small version of the source, on which the overall tone is judged. `tone`: EV that the raw reader
    /// suggests. `strength` 0..1: how much of the suggestion is applied. `rect`: the part of the source, the zero
    /// rectangle for all. `flag` asks for the neutral tone curve instead of the contrasty one. `cancel`, asked
    /// at the start and after the tone is judged, leaves the target as it was when true. Unless it is
    /// the whole source, the target is replaced by a new picture. A source that is not linear is developed already: its
    /// part is copied.
    void develop(const PicturePointer& source, PicturePointer& target, const ThumbnailGetter& thumbnail,
                 const std::shared_ptr<const ImageMetadata>& metadata, float tone, float strength, _Rect<int> rect,
                 bool flag, const std::function<bool()>& cancel) const;

private:
    float wantedTemperature = 0.0f;
    float wantedTint = 0.0f;
    float extraExposure = 0.0f;
};

} // namespace orvo
