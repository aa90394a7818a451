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
    Auto,      ///< the largest rectangle that is full of picture
    Rectangle, ///< PanoJobRequest::cropRect
};

/// A frame of a video that shows one thing better.
struct PanoVideoFrame
{
    std::uint64_t number = 0; ///< from 0
    _Rect<int> part;          ///< what of it may show
};

struct PanoJobRequest : PictureJobRequest
{
    std::vector<std::filesystem::path> files; ///< in any order, two or more; none with a video
    std::filesystem::path output;             ///< .jpg .jpeg .png .tif .tiff .exr; replaced if it is there
    WarpType projection = WarpType::Spherical;
    int maxSize = 0;                   ///< longest side at most, in pixels; 0: the resolution of the pictures
    bool devignette = false;           ///< take out the darkening towards the corners
    bool lensCorrection = false;       ///< correct distortion and vignetting, raw files only
    bool chromaticAberrations = false; ///< correct colour fringes, raw files only

    bool brackets = false; ///< the files are exposure brackets, each of which is merged first
    int bracketSize = 0;   ///< frames of each, in the order given; 0: by their times and exposures

    std::filesystem::path video;       ///< a pan instead of files; empty: none
    std::optional<std::uint64_t> from; ///< its first frame, from 0; empty: 0
    std::optional<std::uint64_t> to;   ///< the frame after its last one; empty: all
    std::vector<PanoVideoFrame> frames;

    _Point<float> shift;      ///< of the view by fractions of the canvas, right and down; before it is turned
    double turnDegrees = 0.0; ///< of the view about its axis, clockwise
    bool straighten = false;  ///< then turn it until the horizon is level
    PanoCrop crop = PanoCrop::None;
    _Rect<int> cropRect; ///< in pixels of what PanoCrop::None gives without a largest size
};

struct PanoJobResult : PictureJobResult
{
    WarpType projection = WarpType::Spherical;
    double focalLength = 0.0; ///< pixels of the pictures
    /// In the order given; told also if nothing could be drawn. Empty for brackets, videos, and where the view is
    /// turned or cropped.
    std::vector<PanoramaPlace> places;
    std::size_t brackets = 0; ///< how many were merged
};

/// Checks the request before anything starts, stitches, writes beside the output and renames. The metadata of the first
/// picture that has a place are carried over. A picture that fits none of the others is left out, which is a warning;
/// fewer than two that fit are a failure. The count of peak plane bytes of the process is reset at the start.
///
/// Brackets, videos, and views that are turned, straightened or cropped go through the interactive composer: then the
/// places of the files are not reported, and the largest size counts for what is left after the crop.
///
/// Progress: Check 0, Stitch 0.02 to 0.9 (through the composer Load, then Stitch), Write 0.9, and 1 at the end.
///
/// Refused: fewer than two files or brackets, brackets that cannot be separated or are incomplete, files beside a
/// video, a path given twice in whatever spelling, a value out of range, an unknown ending, an output that is one of
/// the inputs. Failed: everything that the files or the machine cause. Cancelled while checking, after each file,
/// between the steps of drawing, and while writing.
[[nodiscard]] PanoJobResult panoJob(const PanoJobRequest& request, const JobCallbacks& callbacks = {});

} // namespace orvo::jobs
