/// Stitches picture files into one panorama file.
#pragma once

#include <jobs/picture_job.hpp>
#include <orvo_extensions/panorama.hpp>

#include <filesystem>
#include <vector>

namespace orvo::jobs {

struct PanoJobRequest : PictureJobRequest
{
    std::vector<std::filesystem::path> files; ///< in any order, two or more
    std::filesystem::path output;             ///< .jpg .jpeg .png .tif .tiff .exr; replaced if it is there
    WarpType projection = WarpType::Spherical;
    int maxSize = 0;                   ///< longest side at most, in pixels; 0: the resolution of the pictures
    bool devignette = false;           ///< take out the darkening towards the corners
    bool lensCorrection = false;       ///< correct distortion and vignetting, raw files only
    bool chromaticAberrations = false; ///< correct colour fringes, raw files only
};

struct PanoJobResult : PictureJobResult
{
    WarpType projection = WarpType::Spherical;
    double focalLength = 0.0;          ///< pixels of the pictures
    std::vector<PanoramaPlace> places; ///< in the order given; told also if nothing could be drawn
};

/// Checks the request before anything starts, stitches, writes beside the output and renames. The metadata of the first
/// picture that has a place are carried over. A picture that fits none of the others is left out, which is a warning;
/// fewer than two that fit are a failure. The count of peak plane bytes of the process is reset at the start.
///
/// Progress: Check 0, Stitch 0.02 to 0.9, Write 0.9, and 1 at the end.
///
/// Refused: fewer than two files, a path given twice in whatever spelling, a value out of range, an unknown ending, an
/// output that is one of the inputs. Failed: everything that the files or the machine cause. Cancelled while checking,
/// after each file, between the steps of drawing, and while writing.
[[nodiscard]] PanoJobResult panoJob(const PanoJobRequest& request, const JobCallbacks& callbacks = {});

} // namespace orvo::jobs
