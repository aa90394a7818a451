/// Paints anew what a mask marks of a picture file.
#pragma once

#include <jobs/picture_job.hpp>

#include <filesystem>

namespace orvo::jobs {

struct FillJobRequest : PictureJobRequest
{
    std::filesystem::path source;
    std::filesystem::path mask;   ///< a picture: what is brighter than a middle gray is painted; of any size
    std::filesystem::path output; ///< .jpg .jpeg .png .tif .tiff .exr; replaced if it is there
    /// An inpainting network in ONNX (see orvo::networkFiller()). Empty: patches of the picture itself.
    std::filesystem::path model;
};

struct FillJobResult : PictureJobResult
{
    std::filesystem::path source;
    std::filesystem::path mask;
};

/// Checks the request before anything starts, fills, writes beside the output and renames. The samples are filled as
/// they stand in the file, so that known pixels are the same in an output with the same bits and profile; those of
/// linear light are filled in melissaRGB(). The metadata are carried over. The count of peak plane bytes of the process
/// is reset at the start.
///
/// Progress: Check 0, Load 0.02, Fill 0.1 (several; with a network one, opaque), Write 0.9, and 1 at the end.
///
/// Refused: a file that is missing in the request, an unknown ending, an output that is the source or the mask. Failed:
/// everything that the files or the machine cause, a network that cannot be used and a mask that marks everything too.
/// Cancelled while checking, between steps of the filling, and while writing.
[[nodiscard]] FillJobResult fillJob(const FillJobRequest& request, const JobCallbacks& callbacks = {});

} // namespace orvo::jobs
