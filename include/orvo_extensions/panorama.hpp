/// Panoramas: what they are made from, and the whole job in one call.
#pragma once

#include <orvo_common/export.hpp>
#include <orvo_core/geometry.hpp>
#include <orvo_core/image.hpp>
#include <orvo_extensions/hdr.hpp>
#include <orvo_extensions/warp_type.hpp>

#include <array>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <vector>

namespace orvo {

/// How a panorama is stitched. A plain record. The engine works with its own constants; fields marked "kept" travel
/// with the record for the application.
struct ORVO_EXPORT PanoramaStitchingSettings
{
    PanoramaStitchingSettings();
    PanoramaStitchingSettings(const PanoramaStitchingSettings&);
    PanoramaStitchingSettings(PanoramaStitchingSettings&&) noexcept;
    PanoramaStitchingSettings& operator=(const PanoramaStitchingSettings&);
    PanoramaStitchingSettings& operator=(PanoramaStitchingSettings&&) noexcept;

    bool option0 = false;                ///< kept
    bool autoLensCorrection = false;     ///< raw files: distortion and vignetting by the lens of the metadata
    bool rawChromaticAberration = false; ///< raw files: lateral chromatic aberration
    bool devignette = false;             ///< files: fit and remove vignetting from the overlaps
    bool option4 = true;                 ///< kept
    bool option5 = false;                ///< kept
    float scale0 = 0.6f;                 ///< kept, as is all up to warpType
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
    std::int32_t warpType = 3; ///< a WarpType: the projection at the start
    std::int32_t mode6 = 2;    ///< kept, as is all below
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

/// An exposure bracket for each position, in any order. Merged by make_HDR() before they are stitched.
struct PanoSourceHDR
{
    std::vector<std::vector<std::filesystem::path>> brackets;
    PanoramaStitchingSettings settings;
    HDRSettings hdr;
};

/// A pan.
struct PanoSourceVideo
{
    std::filesystem::path file;
    PanoramaStitchingSettings settings;
    std::uint64_t start = 0;           ///< first frame
    std::uint64_t end = 0;             ///< the frame after the last one
    std::vector<std::uint64_t> frames; ///< frames that the user added by hand
    std::vector<_Rect<int>> rects;     ///< for each of them the only part that may show
};

/// How the whole panorama is drawn.
struct PanoramaOutput
{
    WarpType projection = WarpType::Spherical;
    /// The longest side is at most so many pixels; 0: the resolution of the pictures where the projection stretches
    /// nothing. Never above that, nor above 32000.
    std::int32_t maxSize = 0;
};

/// Where a picture has its place.
struct PanoramaPlace
{
    std::filesystem::path path;
    bool placed = false;             ///< false: it fits none of the others, and was left out
    std::array<float, 9> rotation{}; ///< row after row, from the camera (x right, y down, z ahead) to the world
};

struct StitchedPanorama
{
    /// sRGB, over white, cut to the content; metadata of the first picture that has a place
    std::shared_ptr<Image> image;
    WarpType projection = WarpType::Spherical;
    bool isRead = false;               ///< all pictures could be read
    float focalLength = 0.0f;          ///< median, in pixels of the pictures
    std::vector<PanoramaPlace> places; ///< one for each file, in the order of the source
};

/// Stitches single pictures: reads them, registers them as views from one point, and draws all of what they show within
/// the reach of the projection: longitudes and latitudes without a limit in the spherical one, 64 degrees to each side
/// and 45 up and down in the plane, 57 degrees up and down in the cylindrical one, 85 in Mercator's, 128 degrees to
/// each side and 90 up and down of the fisheye's axis, and of the planet up to 53 degrees above the horizon. The
/// picture does not depend on the order of the files, only its metadata do.
///
/// Blocks the calling thread. `progress`, 0 to 1, is called on it and may be empty, as may `cancel`, which is polled
/// and stops the work when true. The image is empty if it was stopped, if a file cannot be read (told in the log), if
/// fewer than two pictures fit together (then no picture has a place), or if what they show is beyond the projection's
/// reach; an exception is logged and answered with an empty result. Peak: the pictures in 16 bit, and twice the
/// panorama in 16 bit and once in floats, or twice in floats.
[[nodiscard]] ORVO_EXPORT StitchedPanorama stitchPanorama(const PanoSource& source, const PanoramaOutput& output,
                                                          const std::function<void(float)>& progress,
                                                          const std::function<bool()>& cancel);

} // namespace orvo
