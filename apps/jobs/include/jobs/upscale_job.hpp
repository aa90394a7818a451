/// Enlarges a picture file.
#pragma once

#include <jobs/picture_job.hpp>
#include <orvo_extensions/upscale.hpp>

#include <filesystem>
#include <optional>

namespace orvo::jobs {

struct UpscaleJobRequest : PictureJobRequest
{
    std::filesystem::path source;
    std::filesystem::path output; ///< .jpg .jpeg .png .tif .tiff .exr; replaced if it is there
    int passes = 1;               ///< how often it is enlarged, 1..kMostUpscalePasses; each doubles it as built in
    int denoise = 0;              ///< noise that is smoothed before, 0 (none) to 3 (most)
    bool faces = true;            ///< sharpen faces afterwards
    bool crisp = false;           ///< steepen soft edges
    bool builtIn = false;         ///< use the built-in filters even where the settings of the process name a network
    /// A network in ONNX that takes the place of the filters; its scale counts for each pass. Empty: what the settings
    /// of the process name, else the filters.
    std::filesystem::path model;
};

struct UpscaleJobResult : PictureJobResult
{
    std::filesystem::path source;
    _Size<int> sourceSize; ///< upright
};

/// Checks the request before anything starts, enlarges, writes beside the output and renames. The metadata are carried
/// over. The count of peak plane bytes of the process is reset at the start. While it runs, the settings of the process
/// name the request's network, if it has one.
///
/// Progress: Check 0, Upscale 0.02 (opaque), Write 0.9, and 1 at the end.
///
/// Refused: no file, a value out of range, both a network and the built-in filters, an unknown ending, an output that
/// is the source. Failed: everything that the files or the machine cause, a network that cannot be used too; while
/// checking already if the result would have more pixels than can be made, or longer sides than the format takes.
/// Cancelled while checking, after enlarging, and while writing.
[[nodiscard]] UpscaleJobResult upscaleJob(const UpscaleJobRequest& request, const JobCallbacks& callbacks = {});

} // namespace orvo::jobs
