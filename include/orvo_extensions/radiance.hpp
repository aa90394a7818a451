/// Scene radiance from an exposure bracket.
#pragma once

#include <orvo_common/export.hpp>
#include <orvo_core/image.hpp>
#include <orvo_extensions/bracket.hpp>
#include <orvo_extensions/failure.hpp>

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

namespace orvo {

/// Settings of mergeRadiance(). A plain record.
struct RadianceSettings
{
    bool alignment = false; ///< the frames were taken by hand: align them to the middle one by exposure, and crop
    AlignmentQuality alignmentQuality = AlignmentQuality::Fine;
    /// EV of each file, in the order of the paths; only differences count. Empty: from time, aperture and sensitivity
    /// in the metadata.
    std::vector<float> evs;
};

struct RadianceMap
{
    /// Linear light: 1 is what saturates the middle frame. In linearMelissaRGB() for raw files, else in linearSRGB(),
    /// with the metadata of the middle frame. Empty if there is no result.
    std::shared_ptr<Image> image;
    /// Luminance in cd/m2 of the value 1; 0 if the middle frame does not state its whole exposure.
    float whiteLuminance = 0.0f;
    std::vector<float> evs; ///< used for each file, in the order of the paths, 0 for the middle frame
    double clipped = 0.0;   ///< share of the pixels that are saturated in every frame
};

/// The EV of a frame from its metadata for radiance, which needs the real exposure: time, and aperture and sensitivity
/// where a file states them. Empty without a time.
[[nodiscard]] ORVO_EXPORT std::optional<float> statedExposure(const ImageMetadata& metadata);

/// Merges the frames of a bracket into one linear picture of the light in the scene, unlike make_HDR(), which makes a
/// picture to look at.
///
/// Example:
///
///     orvo::RadianceSettings settings;
///     settings.alignment = true;
///     const auto map = orvo::mergeRadiance(paths, settings, {}, {});
///     if (map.image) {
///         auto file = orvo::writeSettingsForPath("room.exr");
///         file.whiteLuminance = map.whiteLuminance;
///         orvo::writeImage("room.exr", *map.image->developedOriginalImageData({}), file);
///     }
///
/// Method: raw files and files with a linear profile are linear. The response of other files is estimated from the
/// frames: the logarithm of the light is that of the sRGB curve plus a smooth deviation for each channel, fitted to
/// pixels that several frames show without clipping (after Debevec and Malik, SIGGRAPH 1997, with a robust fit). It is
/// exact for the ratio of exposures, and fixed to sRGB at half of full scale, since frames alone determine no scale.
/// Each pixel is the mean of all frames, divided by their exposures, weighted by the inverse of their variance: photon
/// noise by exposure and sensitivity, read noise, and the steps of 8-bit codes (after Granados et al., CVPR 2010). A
/// pixel of a frame in which any channel is saturated has no weight; the weight fades above nine tenths of full scale.
/// Where every frame is saturated, the darkest one gives its value, a lower bound; where every frame is black, the
/// result is 0. Nothing is done about moving subjects, which leave a mean of what the frames show.
///
/// Empty on failure and on cancel, with the reason in lastFailure(): no file, one that cannot be read, frames of
/// different sizes, a frame without a stated exposure and no settings.evs, or frames that all have one exposure.
/// `cancel` is polled and `progress` called, with 0 to 1, on the calling thread; both may be empty. Same bytes for any
/// number of threads. Peak: all frames and two pictures more.
[[nodiscard]] ORVO_EXPORT RadianceMap mergeRadiance(const std::vector<std::filesystem::path>& paths,
                                                    const RadianceSettings& settings,
                                                    const std::function<bool()>& cancel,
                                                    const std::function<void(float)>& progress);

} // namespace orvo
