/// Merges a focus series from picture files into one picture file that is sharp throughout.
#pragma once

#include <jobs/picture_job.hpp>
#include <orvo_extensions/hdr.hpp>

#include <filesystem>
#include <optional>
#include <vector>

namespace orvo::jobs {

struct StackJobRequest : PictureJobRequest
{
    std::vector<std::filesystem::path> frames; ///< in the order of the focus; one alone is the result as it is
    std::filesystem::path output;              ///< .jpg .jpeg .png .tif .tiff .exr; replaced if it is there
    bool align = true;                         ///< bring the frames into line: focusing changes the scale, too
    /// Index into `frames` of the one to which the others are aligned and whose moving subjects are kept; empty: the
    /// middle one, as the library counts: of four the third.
    std::optional<std::size_t> reference;
    std::optional<DeghostAmount> deghost; ///< take out ghosts of moving subjects; empty: no
    bool chromaticAberrations = false;    ///< correct colour fringes
    bool lensCorrection = false;          ///< correct distortion and vignetting, raw frames only
};

/// The size is that of the result: alignment crops, so it may be smaller than a frame.
struct StackJobResult : PictureJobResult
{
    std::vector<std::filesystem::path> frames; ///< as given
    std::size_t reference = 0;                 ///< index into `frames`
};

/// Checks the request before anything starts, merges, writes beside the output and renames. The metadata of the
/// reference are carried over, without alignment those of the middle frame. The count of peak plane bytes of the
/// process is reset at the start.
///
/// Progress: Check 0, Stack 0.02 (opaque: the merge tells nothing until its end), Write 0.95, and 1 at the end. Frames
/// are a few pictures of work, writing is less than one.
///
/// Refused: no file, a path given twice in whatever spelling, a value out of range, a reference where nothing refers to
/// one, an unknown ending, an output that is one of the inputs. Failed: everything that the files or the machine cause,
/// frames of different sizes too, and frames with longer sides than the format takes, though alignment may cut them
/// shorter. Cancelled while checking, after the merge, and while writing.
[[nodiscard]] StackJobResult stackJob(const StackJobRequest& request, const JobCallbacks& callbacks = {});

} // namespace orvo::jobs
