/// Panoramas: their sources, and stitching in one call.
#pragma once

#include <orvo_common/export.hpp>
#include <orvo_core/geometry.hpp>
#include <orvo_core/image.hpp>
#include <orvo_extensions/failure.hpp>
#include <orvo_extensions/hdr.hpp>
#include <orvo_extensions/warp_type.hpp>

#include <array>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <vector>

namespace orvo {

/// Settings of a panorama. A plain record.
///
/// Fields with a comment are read; docs/kept_fields.md lists the others, which are kept for the application.
struct ORVO_EXPORT PanoramaStitchingSettings
{
    PanoramaStitchingSettings();
    PanoramaStitchingSettings(const PanoramaStitchingSettings&);
    PanoramaStitchingSettings(PanoramaStitchingSettings&&) noexcept;
    PanoramaStitchingSettings& operator=(const PanoramaStitchingSettings&);
    PanoramaStitchingSettings& operator=(PanoramaStitchingSettings&&) noexcept;

    bool option0 = false;
    bool autoLensCorrection = false;     ///< raw files: correct distortion and vignetting
    bool rawChromaticAberration = false; ///< raw files: correct lateral chromatic aberration
    bool devignette = false;             ///< PanoSource only: estimate vignetting from the overlaps and remove it
    bool option4 = true;
    bool option5 = false;
    float scale0 = 0.6f;
    float scale1 = 0.1f;
    std::int32_t mode0 = 2;
    std::int32_t mode1 = 1;
    float factor0 = 0.65f;
    std::int32_t mode2 = -1;
    float factor1 = 0.5f;
    float scale2 = -1.0f;
    std::int32_t mode3 = 1;
    std::int32_t mode4 = 1;
    std::int32_t mode5 = 1;
    std::int32_t warpType = 3; ///< a WarpType; read when a preview starts, stitchPanorama() has PanoramaOutput
    std::int32_t mode6 = 2;
    std::int32_t mode7 = 1;
    std::int32_t mode8 = 2;
    std::int32_t mode12 = 32;
    std::int32_t mode9 = 2;
    std::int32_t mode10 = 0;
    std::int32_t mode11 = 2;
    float scale3 = 5.0f;
};

/// Single pictures, in any order.
struct PanoSource
{
    std::vector<std::filesystem::path> files;
    PanoramaStitchingSettings settings;
};

/// An exposure bracket for each position, in any order. make_HDR() merges each before stitching.
struct PanoSourceHDR
{
    std::vector<std::vector<std::filesystem::path>> brackets;
    PanoramaStitchingSettings settings;
    HDRSettings hdr;
};

/// A video of a pan.
struct PanoSourceVideo
{
    std::filesystem::path file;
    PanoramaStitchingSettings settings;
    std::uint64_t start = 0;           ///< first frame
    std::uint64_t end = 0;             ///< the frame after the last one
    std::vector<std::uint64_t> frames; ///< frames that the user added by hand
    std::vector<_Rect<int>> rects;     ///< for each of them the only part that may be used
};

/// Longest side of any panorama in pixels: the coordinates used for resampling hold no more.
inline constexpr std::int32_t kLongestPanoramaSide = 32000;

/// How the panorama is drawn.
struct PanoramaOutput
{
    WarpType projection = WarpType::Spherical;
    /// Limit of the longest side in pixels; 0: the resolution of the pictures where the projection does not stretch
    /// them. The result never exceeds that resolution, nor kLongestPanoramaSide.
    std::int32_t maxSize = 0;
    bool coverage = false; ///< also return StitchedPanorama::coverage
};

/// The position of a picture in the panorama.
struct PanoramaPlace
{
    std::filesystem::path path;
    bool placed = false;             ///< false: it matches no other picture and is left out
    std::array<float, 9> rotation{}; ///< row after row, from the camera (x right, y down, z ahead) to the world
};

struct StitchedPanorama
{
    /// sRGB, over white, cut to the content; metadata of the first placed picture
    std::shared_ptr<Image> image;
    /// Only if requested: how much of each pixel the pictures cover, 0 to 1, for ImageWriteSettings::alpha. Then the
    /// colours of partly covered pixels contain no white.
    std::shared_ptr<const _ImageData<float>> coverage;
    WarpType projection = WarpType::Spherical;
    bool isRead = false;               ///< all pictures could be read
    float focalLength = 0.0f;          ///< median, in pixels of the pictures
    std::vector<PanoramaPlace> places; ///< one for each file, in the order of the source
};

/// Stitches single pictures: reads them, registers them as views from one point, and draws the part within the range of
/// the projection. Only the metadata of the result depend on the order of the files.
///
/// | projection | range, in degrees |
/// |---|---|
/// | spherical | all |
/// | plane | 64 to each side, 45 up and down |
/// | cylindrical | all around, 57 up and down |
/// | Mercator | all around, 85 up and down |
/// | fisheye | 128 to each side of the axis, 90 up and down |
/// | stereographic (planet) | all around, up to 53 above the horizon |
///
/// Example:
///
///     orvo::PanoSource source;
///     source.files = {"1.jpg", "2.jpg", "3.jpg"};
///     source.settings.devignette = true;
///     const auto panorama = orvo::stitchPanorama(source, {orvo::WarpType::Cylindrical, 8000}, {}, {});
///     if (panorama.image)
///         orvo::writeImage("panorama.jpg", *panorama.image->imageData({}, {}, true),
///                          orvo::writeSettingsForPath("panorama.jpg"));
///     for (const auto& place : panorama.places)
///         if (!place.placed)
///             std::cerr << place.path << " matches no other picture\n";
///
/// Blocks the calling thread. `progress` receives 0 to 1 on this thread. `cancel` is polled on it; the work stops when
/// it returns true. Both may be empty. The image is empty if the work was cancelled, if a file cannot be read, if fewer
/// than two pictures fit together (then no picture is placed), or if their content is outside the range of the
/// projection; lastFailure() gives the reason. An exception is logged and gives an empty result. Peak: the pictures in
/// 16 bit, and twice the panorama in 16 bit and once in floats, or twice in floats; the coverage is a
/// third of a panorama in floats.
[[nodiscard]] ORVO_EXPORT StitchedPanorama stitchPanorama(const PanoSource& source, const PanoramaOutput& output,
                                                          const std::function<void(float)>& progress,
                                                          const std::function<bool()>& cancel);

} // namespace orvo
