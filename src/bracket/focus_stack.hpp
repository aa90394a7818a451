/// Merges a focus series with a stacker.
#pragma once

#include <orvo_common/run_control.hpp>
#include <orvo_core/image.hpp>
#include <orvo_extensions/bracket.hpp>
#include <orvo_extensions/picture_input.hpp>
#include <orvo_image_processing/focus_stacking.hpp>

#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace orvo {

/// Creates the stacker for frames of a width and height.
using StackerFactory = std::function<std::unique_ptr<grfx::IFocusStacking<PixelRGB<float>>>(int width, int height)>;

/// Loads the frames, feeds the stacker, finishes and crops its result. If a picture cannot be read, writes a line that
/// starts with `caller` to standard error, unless that is empty, and returns an empty pointer; all other failures
/// throw, a cancel too. Peak: the memory of the stacker and two pictures, the one that is added and either the one that
/// it is warped from or the next one, which is read meanwhile. Frames that are used again are kept besides in the
/// samples of their files, except for JPEG files and pictures in memory, which are read again unless ghosts are
/// removed.
[[nodiscard]] std::shared_ptr<Image> stackFocusSeries(const std::vector<PictureInput>& inputs,
                                                      const BracketSettings::FocusStacking& settings,
                                                      const StackerFactory& makeStacker, const std::string& caller,
                                                      const RunControl& run = RunControl::none());
/// The same for files.
[[nodiscard]] std::shared_ptr<Image> stackFocusSeries(const std::vector<std::filesystem::path>& paths,
                                                      const BracketSettings::FocusStacking& settings,
                                                      const StackerFactory& makeStacker, const std::string& caller,
                                                      const RunControl& run = RunControl::none());

/// The intersection of two rectangles; all zero if it is empty.
[[nodiscard]] _Rect<int> commonRectangle(const _Rect<int>& a, const _Rect<int>& b);

} // namespace orvo
