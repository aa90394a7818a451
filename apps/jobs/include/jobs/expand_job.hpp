/// Adds a border to a picture file and paints it.
#pragma once

#include <jobs/generative_job.hpp>
#include <orvo_core/geometry.hpp>

#include <cstdint>
#include <optional>

namespace orvo::jobs {

/// A width in pixels, or in percent of the picture's width (left, right) or height (top, bottom).
struct BorderWidth
{
    double value = 0.0; ///< 0 or more
    bool isPercent = false;
};

struct BorderWidths
{
    BorderWidth left;
    BorderWidth top;
    BorderWidth right;
    BorderWidth bottom;
};

struct ExpandJobRequest : GenerativeJobRequest
{
    /// The new canvas in pixels of the picture: it overlaps the picture and reaches beyond it. May also cut a part off.
    std::optional<_Rect<int>> crop;
    /// In place of `crop`: what is added on each side, rounded to the nearest pixel.
    std::optional<BorderWidths> add;
};

struct ExpandJobResult : GenerativeJobResult
{};

/// The canvas of a request with either `crop` or `add` for a picture of `size`, in its pixels.
[[nodiscard]] _Rect<std::int64_t> expandedCanvas(const ExpandJobRequest& request, _Size<int> size);

/// A result of more pixels is refused.
inline constexpr std::int64_t kMostCanvasPixels = 400'000'000;

/// Checks the request before anything starts, prepares the part of the canvas that is to be painted, gets it answered,
/// ties the answer to the picture, writes beside the output and renames. Beyond a narrow rim the pixels of the picture
/// are unchanged within one step of the file's encoding. Metadata are copied. Resets the process's count of peak plane
/// bytes at the start.
///
/// Progress: Check 0, Load 0.02, Request 0.06 (opaque), Answer 0.12 (several), Apply 0.85 (opaque), Write 0.92, and 1
/// at the end.
///
/// Refused: a file that is missing in the request, neither or both of `crop` and `add`, a width below 0, a URL that
/// cannot be used, an unknown ending, an output that is an input. Failed: everything that the files, the service or the
/// machine cause, also a canvas that lies within the picture or beside it. Cancelled between steps, while the answer is
/// made or waited for, and while writing.
[[nodiscard]] ExpandJobResult expandJob(const ExpandJobRequest& request, const JobCallbacks& callbacks = {});

} // namespace orvo::jobs
