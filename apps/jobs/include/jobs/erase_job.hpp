/// Erases what is marked in a picture file.
#pragma once

#include <jobs/generative_job.hpp>
#include <orvo_core/geometry.hpp>

#include <filesystem>
#include <vector>

namespace orvo::jobs {

/// A point of a brush stroke, in pixels of the picture; the centre of the first pixel is (0.5, 0.5).
struct BrushPoint
{
    float x = 0.0f;
    float y = 0.0f;
    float radius = 0.0f;
};

/// Everything that is marked is erased, in one request.
struct EraseJobRequest : GenerativeJobRequest
{
    /// Pictures of any size that cover the source: what is at least as bright as a middle gray is marked.
    std::vector<std::filesystem::path> masks;
    std::vector<_Rect<int>> boxes; ///< in pixels of the picture
    std::vector<std::vector<BrushPoint>> strokes;
};

struct EraseJobResult : GenerativeJobResult
{};

/// Checks the request before anything starts, draws the marks with the brush of an erase tool, prepares the request,
/// gets it answered, blends the answer in, writes beside the output and renames. Outside of the marks and of a feather
/// around them the pixels of the file are unchanged within one step of its encoding. Metadata are copied. Resets the
/// process's count of peak plane bytes at the start.
///
/// Progress: Check 0, Load 0.02, Request 0.06 (opaque), Answer 0.12 (several), Apply 0.85 (opaque), Write 0.92, and 1
/// at the end.
///
/// Refused: a file that is missing in the request, nothing marked, a stroke or box without extent, a value out of
/// range, a URL that cannot be used, an unknown ending, an output that is an input. Failed: everything that the files,
/// the service or the machine cause, also marks that lie outside of the picture. Cancelled between steps, while the
/// answer is made or waited for, and while writing.
[[nodiscard]] EraseJobResult eraseJob(const EraseJobRequest& request, const JobCallbacks& callbacks = {});

} // namespace orvo::jobs
