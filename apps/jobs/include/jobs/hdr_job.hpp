/// Merges an exposure bracket from picture files into one picture file.
#pragma once

#include <jobs/frames_job.hpp>
#include <jobs/picture_job.hpp>
#include <orvo_extensions/hdr.hpp>

#include <filesystem>
#include <optional>
#include <vector>

namespace orvo::jobs {

struct HdrJobRequest : PictureJobRequest
{
    std::vector<std::filesystem::path> frames; ///< in any order; a single frame is enhanced
    std::filesystem::path output;              ///< .jpg .jpeg .png .tif .tiff .exr; an existing file is replaced
    bool align = false;                        ///< the frames were taken by hand
    bool fast = false;                         ///< AlignmentQuality::Fast; refused without alignment
    std::optional<DeghostAmount> deghost;      ///< remove ghosts of moving subjects; empty: no
    /// Index into `frames` of the frame whose moving subjects are kept; empty: the middle one by exposure or one beside
    /// it, whichever is clipped and noisy in fewer pixels.
    std::optional<std::size_t> ghostReference;
    bool chromaticAberrations = false; ///< correct colour fringes
    bool lensCorrection = false;       ///< correct distortion and vignetting, raw frames only
    float whiteBalance = 0.0f;         ///< 0..1, share of the colour cast to remove; 0: none
    float details = 0.0f;              ///< 0..1, strength of the detail enhancement; 0: none
};

/// `size` is that of the result: alignment crops, so it may be smaller than a frame.
struct HdrJobResult : PictureJobResult
{
    std::vector<BracketFrame> frames; ///< by rising exposure
};

/// Checks the request, merges, writes beside the output and renames. Copies the metadata of the middle frame by
/// exposure. Resets the process's count of peak plane bytes at the start.
///
/// Progress follows the phases of the merge: Check 0, Load 0.01, Ladder 0.15, Blend 0.4, 0.75 and 0.85 with each phase
/// of the blend, Finish 0.93 (and 0.94), Write 0.95, and 1 at the end. The fractions are shares of time, measured on a
/// handheld bracket of three 20 megapixel JPEGs with alignment and deghosting, on two cores.
///
/// Refused: no file, a path given twice in any spelling, a value out of range, fast without alignment, an unknown
/// ending, an output that is one
/// of the inputs. Failed: everything caused by the files or the machine, including frames of different sizes, and
/// frames with longer sides than the format allows, although alignment may crop them. Cancelled while loading, between
/// the steps of the merge, and while writing.
[[nodiscard]] HdrJobResult hdrJob(const HdrJobRequest& request, const JobCallbacks& callbacks = {});

} // namespace orvo::jobs
