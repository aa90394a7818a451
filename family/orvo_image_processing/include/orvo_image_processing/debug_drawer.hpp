/// Text drawn into a picture, for developers.
#pragma once

#include <orvo_common/export.hpp>
#include <orvo_core/image_data.hpp>

#include <memory>
#include <string>

namespace orvo {

/// Draws text that can be read on any ground: light letters with a dark rim. The size follows the picture (a line is
/// about a fortieth of its shorter side, at least 12 pixels). What does not fit into the picture is cut off.
class ORVO_EXPORT DebugDrawer
{
public:
    /// Lines are parted by "\n"; `position` is the upper left corner of the first one, in pixels, and may lie outside.
    /// Characters outside printable ASCII show as "?". An empty pointer or an empty picture is left alone.
    static void draw(std::shared_ptr<_ImageData<PixelRGB<float>>>& image, const std::string& text,
                     _Point<int> position);
    static void draw(std::shared_ptr<_ImageData<PixelRGB<float>>>& image, const std::string& text,
                     _Point<float> position);
};

/// One line in the upper left corner, its words parted by one blank each, whatever parts them in `text`. In a picture
/// too narrow for it the line goes on below, since its end tells as much as its beginning; in one that is also too low
/// the letters shrink, to lines of 10 pixels, and what does not fit even so loses its middle: "ali...2 out of 7". A
/// picture without room for the dots is left alone, as are an empty pointer and an empty picture.
ORVO_EXPORT void writeOnFrame(std::shared_ptr<_ImageData<PixelRGB<float>>>& image, const std::string& text);

} // namespace orvo
