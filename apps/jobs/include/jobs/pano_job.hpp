/// Stitches picture files into one panorama file.
#pragma once

#include <jobs/picture_job.hpp>
#include <orvo_extensions/panorama.hpp>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <vector>

namespace orvo::jobs {

enum class PanoCrop
{
    None,      ///< everything, over white
    Auto,      ///< the largest rectangle inside the content; of a planet also over what the content encloses
    Rectangle, ///< PanoJobRequest::cropRect
};

/// A frame of a video that is added by hand.
struct PanoVideoFrame
{
    std::uint64_t number = 0; ///< from 0
    _Rect<int> part;          ///< the part of it that is used
};

struct PanoJobRequest : PictureJobRequest
{
    std::vector<std::filesystem::path> files; ///< in any order, two or more; none with a video
    std::filesystem::path output;             ///< .jpg .jpeg .png .tif .tiff .exr; an existing file is replaced
    WarpType projection = WarpType::Spherical;
    int maxSize = 0;                   ///< limit of the longest side in pixels; 0: the resolution of the pictures
    bool devignette = false;           ///< remove vignetting
    bool lensCorrection = false;       ///< correct distortion and vignetting, raw files only
    bool chromaticAberrations = false; ///< correct colour fringes, raw files only

    bool brackets = false; ///< the files are exposure brackets, each of which is merged first
    int bracketSize = 0;   ///< frames of each, in the order given; 0: as groupPictures() finds them

    std::filesystem::path video;       ///< a pan instead of files; empty: none
    std::optional<std::uint64_t> from; ///< its first frame, from 0; empty: 0
    std::optional<std::uint64_t> to;   ///< the frame after its last one; empty: all
    std::vector<PanoVideoFrame> frames;

    _Point<float> shift;      ///< of the view by fractions of the canvas, right and down; before it is turned
    double turnDegrees = 0.0; ///< of the view about its axis, clockwise
    bool straighten = false;  ///< then turn it until the horizon is level
    PanoCrop crop = PanoCrop::None;
    /// What no picture covers is transparent instead of white. Refused for JPEG.
    bool transparent = false;
    _Rect<int> cropRect; ///< in pixels of the result of PanoCrop::None without a largest size
};

struct PanoJobResult : PictureJobResult
{
    WarpType projection = WarpType::Spherical;
    double focalLength = 0.0; ///< in pixels of the pictures
    /// In the given order, of brackets one for each, with the first of its paths; set even if nothing could be drawn.
    /// Rotations are those of the view before it is turned. Empty for videos.
    std::vector<PanoramaPlace> places;
    std::size_t brackets = 0; ///< how many were merged
};

/// Checks the request, stitches, writes beside the output and renames. Copies the metadata of the first placed picture.
/// A picture that matches no other is left out with a warning; fewer than two matching pictures are a failure. Resets
/// the process's count of peak plane bytes at the start.
///
/// Brackets, videos, and views that are turned, straightened or cropped go through the interactive composer: then the
/// largest size applies to the result of the crop.
///
/// Progress: Check 0, Stitch 0.02 to 0.9 (through the composer Load, then Stitch), Write 0.9, and 1 at the end.
///
/// Refused: fewer than two files or brackets, brackets that cannot be separated or are incomplete, files together with
/// a video, a path given twice in any spelling, a value out of range, an unknown ending, an output that is one of the
/// inputs. Failed: everything caused by the files or the machine. Cancelled while checking, after each file, between
/// the steps of drawing, and while writing.
[[nodiscard]] PanoJobResult panoJob(const PanoJobRequest& request, const JobCallbacks& callbacks = {});

} // namespace orvo::jobs
