/// The merge of a focus series around a stacker.
#pragma once

#include <orvo_core/image.hpp>
#include <orvo_extensions/bracket.hpp>
#include <orvo_image_processing/focus_stacking.hpp>

#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace orvo {

/// Makes the stacker for frames of a width and height.
using StackerFactory = std::function<std::unique_ptr<grfx::IFocusStacking<PixelRGB<float>>>(int width, int height)>;

/// Loads the frames, feeds the stacker, finishes and crops its result. A file that cannot be opened is told on standard
/// error, in a line that starts with `caller`, and gives an empty pointer; everything else that fails throws.
/// Peak: all frames, and either a warped frame (while it is made, also its copy for OpenCV) and what the stacker holds,
/// or the result and its crop.
[[nodiscard]] std::shared_ptr<Image> stackFocusSeries(const std::vector<std::filesystem::path>& paths,
                                                      const BracketSettings::FocusStacking& settings,
                                                      const StackerFactory& makeStacker, const std::string& caller);

/// The part that two rectangles share; all zero if there is none.
[[nodiscard]] _Rect<int> commonRectangle(const _Rect<int>& a, const _Rect<int>& b);

} // namespace orvo
