/// Merging a focus series into one picture that is sharp throughout, and labelling its frames for inspection.
#pragma once

#include <orvo_common/export.hpp>
#include <orvo_core/image.hpp>
#include <orvo_extensions/bracket.hpp>
#include <orvo_extensions/failure.hpp>

#include <filesystem>
#include <functional>
#include <memory>
#include <vector>

namespace orvo {

/// Merges frames that differ in their plane of focus. Loads them in the given order, aligns them to the reference if
/// `settings.adjust` is enabled, deghosts them if `settings.ghostReduction` is, passes them one at a time to a
/// Laplacian pyramid stacker, and crops the result to the rectangle in which all aligned frames are valid.
///
/// The reference is the path at `settings.adjust.referenceIndex` if alignment is enabled, else the middle path. All
/// frames must have the size of the reference. Result: the picture in melissaRGB() with the metadata of the reference;
/// empty on failure, with the reason in lastFailure(), and on standard error for a file that cannot be opened. Blocks
/// the calling thread; cannot be cancelled. Peak: six pictures; with alignment or deghosting also all frames, which
/// take a quarter of a picture each if the samples of their files have 8 bits and half a picture with 16.
[[nodiscard]] ORVO_EXPORT std::shared_ptr<Image> makeFocusStack(const std::vector<std::filesystem::path>& paths,
                                                                const BracketSettings::FocusStacking& settings);

/// The same, but ends early with an empty result, and the cancel as lastFailure(), once `canceled` returns true. It is
/// polled on the calling thread before each frame is loaded, registered, warped or stacked, and before and after the
/// last step; empty: never. `progress`, if any, gets the finished share of the frames' work there, 0 to 1 and never
/// less than before. What either throws is logged and fails the call.
[[nodiscard]] ORVO_EXPORT std::shared_ptr<Image> makeFocusStack(const std::vector<std::filesystem::path>& paths,
                                                                const BracketSettings::FocusStacking& settings,
                                                                const std::function<bool()>& canceled,
                                                                const std::function<void(float)>& progress = {});

/// Returns the frames as loaded, in the order of the paths, each with a line of text in its pixels that gives its
/// position: "align result, image 1 out of 7". Despite its name it does not align, deghost or crop, and does not
/// develop raw files; `settings` change no pixel.
///
/// Result: pictures in melissaRGB(), each of its own size and with the metadata of its file; empty if there are no
/// paths. A file that cannot be opened is reported by lastFailure() and in the log. If all files are raw, it is dropped
/// and not counted, so the result is shorter than `paths`; else a FailureError names it. Other exceptions, such as
/// std::bad_alloc, also reach the caller. Blocks the calling thread; cannot be cancelled. Peak: all frames, and one
/// picture more.
[[nodiscard]] ORVO_EXPORT std::vector<std::shared_ptr<Image>>
exportAligned(const std::vector<std::filesystem::path>& paths, const BracketSettings::FocusStacking& settings);

} // namespace orvo
