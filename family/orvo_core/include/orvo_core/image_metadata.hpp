/// Metadata of a picture.
#pragma once

#include <orvo_common/export.hpp>
#include <orvo_core/color_profile.hpp>
#include <orvo_core/geometry.hpp>

#include <memory>
#include <string>
#include <vector>

namespace orvo {

/// Metadata blocks as stored in the file, copied to results made from it. Immutable once shared.
struct ORVO_EXPORT EmbeddedMetadata
{
    std::vector<unsigned char> exif; ///< a TIFF structure without the "Exif\0\0" prefix
    std::vector<unsigned char> iptc; ///< IPTC-IIM records
    std::string xmp;                 ///< an XMP packet
};

/// A copyable record. Numbers missing in the file are 0.
struct ORVO_EXPORT ImageMetadata
{
    _Size<int> size;          ///< upright pixels
    bool isRaw = false;       ///< the raw mark: a raw camera file whose pixels still need development
    bool isDeveloped = false; ///< the developed mark: raw pixels that have been developed
    bool isFinished = false;  ///< the second developed mark: result of a merge, never to be developed again

    float baselineExposure = 0.0f;    ///< EV that development adds at the camera's request; raw only
    float linearResponseLimit = 1.0f; ///< share of full scale up to which the sensor is linear; raw only

    float isoSpeed = 0.0f;
    float shutterSeconds = 0.0f;
    float aperture = 0.0f;       ///< f-number
    float exposureBias = 0.0f;   ///< EV as the camera wrote it; already included in the three above if they are known
    float exposureOffset = 0.0f; ///< EV; for a file without exposure data the log2 of its mean linear luminance

    float temperature = 0.0f; ///< white balance in kelvin for development; after reading, the camera's
    float tint = 0.0f;        ///< distance from the Planckian locus in CIE 1960 u, v times 3000, positive to magenta
    float cameraTemperature = 0.0f; ///< white balance already applied to undeveloped pixels; 0: unknown
    float cameraTint = 0.0f;

    std::string cameraMake;
    std::string cameraModel;
    std::string lensModel;
    float focalLength = 0.0f;     ///< mm
    float cropFactor = 0.0f;      ///< 36 mm over the sensor's width
    float subjectDistance = 0.0f; ///< m

    std::shared_ptr<ColorProfile> fileProfile;        ///< the colour space of the file, never empty after reading
    std::shared_ptr<const EmbeddedMetadata> embedded; ///< may be empty

    /// Whether time, aperture and sensitivity are all known.
    [[nodiscard]] bool hasExposure() const { return shutterSeconds > 0.0f && aperture > 0.0f && isoSpeed > 0.0f; }
    /// An independent copy. Profile and blocks are immutable and stay shared.
    [[nodiscard]] std::shared_ptr<ImageMetadata> deepCopyDCP() const { return std::make_shared<ImageMetadata>(*this); }
};

/// Further data found by the raw reader. Immutable after wait(), except for prepareLensCorrection().
class ORVO_EXPORT AdditionalRawMetadata
{
public:
    virtual ~AdditionalRawMetadata();

    /// Blocks until all data is available.
    virtual void wait() = 0;
    /// EV that the camera's own rendering adds to linear light, whatever this frame shows.
    [[nodiscard]] virtual float getAutoDetectedTone() = 0;
    /// Announces a lens correction, so that its data can be looked up.
    virtual void prepareLensCorrection() = 0;
    /// Whether prepareLensCorrection() was called.
    [[nodiscard]] virtual bool isLensCorrectionPrepared() const = 0;
    /// Whether the pixels still have chromatic aberration; applying the correction clears this.
    [[nodiscard]] virtual bool hasPendingChromaticAberration() const = 0;
    virtual void dismissChromaticAberration() = 0;
};

/// An AdditionalRawMetadata whose values are available at once.
class ORVO_EXPORT AdditionalRawMetadataSync final : public AdditionalRawMetadata
{
public:
    explicit AdditionalRawMetadataSync(float autoDetectedTone = 0.0f);
    ~AdditionalRawMetadataSync() override;
    void wait() override {}
    [[nodiscard]] float getAutoDetectedTone() override { return tone; }
    void prepareLensCorrection() override { lensPrepared = true; }
    [[nodiscard]] bool isLensCorrectionPrepared() const override { return lensPrepared; }
    [[nodiscard]] bool hasPendingChromaticAberration() const override { return chromaticPending; }
    void dismissChromaticAberration() override { chromaticPending = false; }

private:
    float tone;
    bool lensPrepared = false;
    bool chromaticPending = true;
};

} // namespace orvo
