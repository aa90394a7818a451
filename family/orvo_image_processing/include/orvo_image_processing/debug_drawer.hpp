/// Draws text into a picture, for developers.
#pragma once

#include <orvo_common/export.hpp>
#include <orvo_core/image_data.hpp>

#include <memory>
#include <string>

namespace orvo {

/// Draws text that is readable on any background: light letters with a dark rim. The size follows the picture (a line
/// is about a fortieth of its shorter side, at least 12 pixels). Text beyond the picture is clipped.
class ORVO_EXPORT DebugDrawer
{
public:
    /// Lines are separated by "\n"; `position` is the upper left corner of the first line in pixels and may be outside.
    /// Characters outside printable ASCII show as "?". Does nothing for an empty pointer or an empty picture.
    static void draw(std::shared_ptr<_ImageData<PixelRGB<float>>>& image, const std::string& text,
                     _Point<int> position);
    static void draw(std::shared_ptr<_ImageData<PixelRGB<float>>>& image, const std::string& text,
                     _Point<float> position);
};

/// Draws one line in the upper left corner, with any white space in `text` reduced to single blanks. If the picture is
/// too narrow, the line wraps, because its end is as informative as its beginning; if it is also too low, the letters
/// shrink to lines of 10 pixels, and a text that still does not fit loses its middle: "ali...2 out of 7". Does nothing
/// for a picture without room for the dots, an empty pointer or an empty picture.
ORVO_EXPORT void writeOnFrame(std::shared_ptr<_ImageData<PixelRGB<float>>>& image, const std::string& text);

} // namespace orvo
