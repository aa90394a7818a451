/// Merges an exposure bracket from picture files into one OpenEXR file of scene radiance.
#pragma once

#include <jobs/picture_job.hpp>

#include <filesystem>
#include <vector>

namespace orvo::jobs {

struct RadianceJobRequest : PictureJobRequest
{
    std::vector<std::filesystem::path> frames; ///< in any order
    std::filesystem::path output;              ///< .exr; an existing file is replaced
    bool align = false;                        ///< the frames were taken by hand
    bool fast = false;                         ///< AlignmentQuality::Fast; refused without alignment
    std::vector<float> evs;                    ///< of each frame; empty: as the files state
};

struct RadianceJobResult : PictureJobResult
{
    std::vector<std::filesystem::path> frames; ///< as given
    std::vector<float> evs;                    ///< of each, relative to the middle frame
    float whiteLuminance = 0.0f;               ///< see RadianceMap
    double clipped = 0.0;                      ///< see RadianceMap; more than 0 is a warning
};

/// Checks the request, merges (mergeRadiance()), writes beside the output and renames.
///
/// Progress: Check 0, Blend 0.02 to 0.95 with every frame that is read and the rows that are merged, Write 0.95,
/// and 1 at the end.
///
/// Refused: no file, a path given twice in any spelling, EVs for another number of files, fast without alignment, an
/// output that is not OpenEXR or one of the inputs. Failed: everything caused by the files or the machine, including
/// frames of different sizes, and frames without exposure data if the request has no EVs. Cancelled at any time.
[[nodiscard]] RadianceJobResult radianceJob(const RadianceJobRequest& request, const JobCallbacks& callbacks = {});

} // namespace orvo::jobs
