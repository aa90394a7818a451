/// Restores a picture file: less noise, less blur, clearer faces.
#pragma once

#include <jobs/generative_job.hpp>

namespace orvo::jobs {

struct RestoreJobRequest : GenerativeJobRequest
{
    bool asIs = false; ///< the result is the answer itself, at most 2700 pixels a side, in sRGB
};

struct RestoreJobResult : GenerativeJobResult
{};

/// Checks the request before anything starts, renders the picture within the limits of a request, gets it answered,
/// writes beside the output and renames.
///
/// An answer is smaller than a large picture. What it changed is brought to the size of the picture by the upscaler,
/// and the picture's own fine detail, which the answer cannot have, is put back: the detail that is left after noise
/// reduction at full size. So an answer that changes nothing gives the picture with less noise; if the request has the
/// size of the picture, exactly what the answer changed is changed. Colours that sRGB does not have are kept. Metadata
/// are copied. Resets the process's count of peak plane bytes at the start.
///
/// Progress: Check 0, Request 0.06 (opaque), Answer 0.12 (several), Apply 0.5 (several, then opaque), Write
/// 0.92, and 1 at the end.
///
/// Refused: a file that is missing in the request, a URL that cannot be used, an unknown ending, an output that is an
/// input. Failed: everything that the files, the service or the machine cause. Cancelled between steps, while the
/// answer is made or waited for, while noise is reduced, and while writing. Peak: seven
/// pictures of the source's size.
[[nodiscard]] RestoreJobResult restoreJob(const RestoreJobRequest& request, const JobCallbacks& callbacks = {});

} // namespace orvo::jobs
