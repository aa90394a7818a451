/// Merging a focus series into one picture that is sharp throughout, and looking at its frames.
#pragma once

#include <orvo_common/export.hpp>
#include <orvo_core/image.hpp>
#include <orvo_extensions/bracket.hpp>
#include <orvo_extensions/failure.hpp>

#include <filesystem>
#include <memory>
#include <vector>

namespace orvo {

/// Merges frames that differ in their plane of focus. They are loaded in the order given, aligned to the reference if
/// `settings.adjust` is enabled, deghosted if asked, given one at a time to a Laplacian pyramid stacker, and cropped to
/// the rectangle in which all aligned frames are valid.
///
/// The reference is `settings.adjust.referenceIndex` if aligning is enabled, else the middle path; an index into the
/// paths. All frames must have the size of the reference. Result: the picture in melissaRGB() with the metadata of the
/// reference; empty on failure, with the reason in lastFailure(), and on standard error for a file that cannot be
/// opened. Blocks the calling thread; cannot be cancelled. Peak: all frames, and five pictures more.
[[nodiscard]] ORVO_EXPORT std::shared_ptr<Image> makeFocusStack(const std::vector<std::filesystem::path>& paths,
                                                                const BracketSettings::FocusStacking& settings);

/// The frames as loaded, in the order of the paths, each with a line of text in its pixels that names its place:
/// "align result, image 1 out of 7". In spite of its name nothing is aligned, deghosted or cropped, and raw files are
/// not developed; `settings` change no pixel.
///
/// Result: pictures in melissaRGB(), each of its own size and with the metadata of its file; none for no path. A file
/// that cannot be opened is reported by lastFailure() and in the log. If all files are raw it drops out and is not
/// counted, so the result is shorter than `paths`; else FailureError names it. Other exceptions reach the caller too,
/// such as std::bad_alloc. Blocks the calling thread; cannot be cancelled. Peak: all frames, and one picture more.
[[nodiscard]] ORVO_EXPORT std::vector<std::shared_ptr<Image>>
exportAligned(const std::vector<std::filesystem::path>& paths, const BracketSettings::FocusStacking& settings);

} // namespace orvo
