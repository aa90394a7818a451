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
    std::vector<std::filesystem::path> frames; ///< in the order of the focus; a single frame is not merged
    std::filesystem::path output;              ///< .jpg .jpeg .png .tif .tiff .exr; an existing file is replaced
    bool align = true;                         ///< align the frames: focusing also changes the scale
    bool fast = false;                         ///< AlignmentQuality::Fast; refused without alignment
    /// Index into `frames` of the frame to which the others are aligned and whose moving subjects are kept; empty: the
    /// middle one; of four the third.
    std::optional<std::size_t> reference;
    std::optional<DeghostAmount> deghost; ///< remove ghosts of moving subjects; empty: no
    bool chromaticAberrations = false;    ///< correct colour fringes
    bool lensCorrection = false;          ///< correct distortion and vignetting, raw frames only
};

/// `size` is that of the result: alignment crops, so it may be smaller than a frame.
struct StackJobResult : PictureJobResult
{
    std::vector<std::filesystem::path> frames; ///< as given
    std::size_t reference = 0;                 ///< index into `frames`
};

/// Checks the request, merges, writes beside the output and renames. Copies the metadata of the reference, without
/// alignment those of the middle frame. Resets the process's count of peak plane bytes at the start.
///
/// Progress: Check 0, Stack 0.02 to 0.95 with every frame that is read, registered or merged, Write 0.95, and 1 at the
/// end. Writing takes a small share of the time of the frames.
///
/// Refused: no file, a path given twice in any spelling, a value out of range, a reference without alignment or
/// deghosting, fast without alignment, an unknown ending, an output that is one of the inputs. Failed: everything
/// caused by the files or the machine, including frames of different sizes, and frames with longer sides than the
/// format allows, although alignment may crop them. Cancelled while checking, after the merge, and while writing.
[[nodiscard]] StackJobResult stackJob(const StackJobRequest& request, const JobCallbacks& callbacks = {});

} // namespace orvo::jobs
