/// Perceived brightness of a pixel from encoded values.
#pragma once

#include <orvo_core/pixel.hpp>

namespace orvo {

/// The weights of Rec. 601.
template <typename T>
[[nodiscard]] constexpr T luma601(T r, T g, T b)
{
    return T(0.299) * r + T(0.587) * g + T(0.114) * b;
}
template <typename T>
[[nodiscard]] constexpr T luma601(const PixelRGB<T>& pixel)
{
    return luma601(pixel.r, pixel.g, pixel.b);
}

} // namespace orvo
