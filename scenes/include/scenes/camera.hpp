/// A camera that looks at a RadianceScene: exposure, sensor noise, clipping, response curve and an unsteady hand.
#pragma once

#include <orvo_core/image_data.hpp>
#include <scenes/homography.hpp>
#include <scenes/moving_subject.hpp>
#include <scenes/radiance_scene.hpp>

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

namespace orvo::scenes {

using Picture = _ImageData<PixelRGB<float>>;

/// The exposure triangle. The default is EV 0: a radiance of 1 is full scale.
struct ExposureSettings
{
    double shutterSeconds = 1.0 / 60.0;
    double aperture = 8.0; ///< f-number
    double isoSpeed = 100.0;
};

/// log2 of the gain from radiance to full scale: log2(time * ISO / aperture^2), 0 for the default exposure.
[[nodiscard]] double exposureValue(const ExposureSettings& exposure);
/// `base` with `ev` stops more light, by shutter time only.
[[nodiscard]] ExposureSettings exposedBy(const ExposureSettings& base, double ev);

/// Maps linear light to the value in a file, 0..1 to 0..1, strictly increasing.
enum class ResponseCurve
{
    Linear,
    Srgb,   ///< IEC 61966-2-1
    Filmic, ///< sRGB with an S-curve on top, as in camera JPEGs: a soft toe and shoulder, steeper mid-tones
};
/// `linear` below 0 counts as 0, above 1 as 1.
[[nodiscard]] float encoded(ResponseCurve curve, float linear);
[[nodiscard]] float decoded(ResponseCurve curve, float value);

/// Noise of a sensor. At ISO s a channel has full well * 100 / s electrons at full scale; its noise in electrons has
/// the variance electrons + readNoise^2. Drawn per pixel and channel from a counter-based generator as a sum of eight
/// uniform numbers, which is a normal distribution out to 4.9 standard deviations.
struct SensorNoise
{
    double fullWellElectrons = 40000.0; ///< at ISO 100, above 0
    double readNoiseElectrons = 4.0;    ///< 0 or more
};

struct CameraSettings
{
    ResponseCurve response = ResponseCurve::Srgb;
    std::optional<SensorNoise> noise; ///< empty: none
};

/// The view of a hand-held camera relative to one on a tripod.
struct CameraView
{
    double rotationDegrees = 0.0; ///< about the middle of the frame, clockwise as seen in the scene
    double shiftX = 0.0;          ///< scene pixels by which the frame's middle is further right
    double shiftY = 0.0;          ///< ... further down
    double zoom = 1.0;            ///< above 1: the frame shows less of the scene
    double keystoneX = 0.0;       ///< change of scale from the middle to the right edge, 0.01 is 1 percent
    double keystoneY = 0.0;       ///< ... to the lower edge
};

/// The exact map from a frame's pixels to the scene's, both of `size`; pixel centres at integers.
[[nodiscard]] Homography sceneFromFrame(const CameraView& view, _Size<int> size);

/// Views of an unsteady hand. Each value of `amplitude` is the largest deviation (of zoom: from 1); the view number
/// `steady` stays as on the tripod. The same seed gives the same views.
[[nodiscard]] std::vector<CameraView> handShake(std::size_t count, std::size_t steady, const CameraView& amplitude,
                                                std::uint64_t seed);

/// One release of the shutter.
struct Shot
{
    ExposureSettings exposure;
    CameraView view;
    std::optional<SubjectPlacement> subject; ///< empty: no walker
    std::uint64_t noiseSeed = 1;
};

/// The light that a frame sees: linear, unlimited, profile linearSRGB(). Peak: the result.
[[nodiscard]] std::shared_ptr<Picture> seenRadiance(const RadianceScene& scene, const Shot& shot);
/// The share of each frame pixel that the walker covers; all 0 without one. Peak: the result.
[[nodiscard]] std::shared_ptr<MaskImage> subjectMask(const RadianceScene& scene, const Shot& shot);
/// The camera's picture: encoded values 0..1, not quantised. The profile is linearSRGB() for a linear response, else
/// sRGB(), as cameras tag their files whatever their curve. Peak: the result.
[[nodiscard]] std::shared_ptr<Picture> takePicture(const RadianceScene& scene, const CameraSettings& camera,
                                                   const Shot& shot);

} // namespace orvo::scenes
