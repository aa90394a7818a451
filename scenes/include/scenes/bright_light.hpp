/// A bright light before a wall of one hue: what clips in a camera, channel by channel.
#pragma once

#include <scenes/camera.hpp>

namespace orvo::scenes {

struct BrightLightSettings
{
    _Size<int> size{240, 160};
    double hueDegrees = 0.0; ///< of the wall, in Oklab
    double chroma = 0.09;    ///< of the wall, in Oklab; reduced where sRGB has no such colour
    double peak = 8.0;       ///< light in the middle of the glow, in units of the camera's white
};

/// Linear and unlimited, profile linearSRGB(). The wall brightens from top to bottom; the white glow falls off from the
/// middle by 1 / (1 + r^2)^2 and comes on top of it, so every pixel has the hue of the wall or is all but white.
[[nodiscard]] std::shared_ptr<Picture> brightLight(const BrightLightSettings& settings);

/// The picture that a camera makes of `light`: clipped at 1, encoded with the sRGB curve in steps of 8 bits, profile
/// sRGB().
[[nodiscard]] std::shared_ptr<Picture> clippedPicture(const Picture& light);

} // namespace orvo::scenes
