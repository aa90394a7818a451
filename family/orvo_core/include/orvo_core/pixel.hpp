/// Pixel types. Exported, because GCC hides symbols with a hidden template argument. For float samples 1.0 is full
/// scale; values outside of 0..1 can occur.
#pragma once

#include <orvo_common/export.hpp>

namespace orvo {

template <typename T>
struct ORVO_EXPORT PixelRGB
{
    T r{};
    T g{};
    T b{};
    constexpr bool operator==(const PixelRGB&) const = default;
};

template <typename T>
struct ORVO_EXPORT PixelRGBA
{
    T r{};
    T g{};
    T b{};
    T a{};
    constexpr bool operator==(const PixelRGBA&) const = default;
};

static_assert(sizeof(PixelRGB<float>) == 12 && sizeof(PixelRGBA<float>) == 16, "rows are copied as raw bytes");

/// Each channel clamped to 0..1; NaN becomes 0.
[[nodiscard]] constexpr PixelRGB<float> clampValue(const PixelRGB<float>& pixel)
{
    const auto limited = [](float v) { return v > 0.0f ? (v < 1.0f ? v : 1.0f) : 0.0f; };
    return {limited(pixel.r), limited(pixel.g), limited(pixel.b)};
}

} // namespace orvo
