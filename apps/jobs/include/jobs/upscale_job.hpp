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
    std::filesystem::path output; ///< .jpg .jpeg .png .tif .tiff .exr; an existing file is replaced
    int passes = 1;  ///< number of enlargements, 1..kMostUpscalePasses; the built-in filters double the size each time
    int denoise = 0; ///< noise smoothing before enlarging, 0 (none) to 3 (most)
    bool faces = true;    ///< sharpen faces afterwards
    bool crisp = false;   ///< sharpen soft edges
    bool builtIn = false; ///< use the built-in filters even if the settings of the process name a network
    /// An ONNX network that replaces the filters; each pass enlarges by its scale. Empty: the network in the settings
    /// of the process, else the filters.
    std::filesystem::path model;
};

struct UpscaleJobResult : PictureJobResult
{
    std::filesystem::path source;
    _Size<int> sourceSize; ///< upright
};

/// Checks the request, enlarges, writes beside the output and renames. Copies the metadata. Resets the process's count
/// of peak plane bytes at the start. While it runs, the settings of the process name the request's network, if it has
/// one (UpscaleNetwork).
///
/// Progress: Check 0, Upscale 0.02 to 0.85 with the pixels that are made, Write 0.85, and 1 at the end.
///
/// Refused: no file, a value out of range, both a network and the built-in filters, an unknown ending, an output that
/// is the source. Failed: everything caused by the files or the machine, including a network that cannot be used;
/// during the check if the result would have more pixels than are possible, or longer sides than the format allows.
/// Cancelled while checking, enlarging and writing.
[[nodiscard]] UpscaleJobResult upscaleJob(const UpscaleJobRequest& request, const JobCallbacks& callbacks = {});

} // namespace orvo::jobs
