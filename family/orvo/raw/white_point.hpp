/// Converts from one white balance to another.
#pragma once

#include <orvo_core/pixel.hpp>

#include <array>
#include <optional>

namespace orvo {

/// Temperature in kelvin, and tint: the distance from the Planckian locus in CIE 1960 u, v times 3000, positive towards
/// magenta.
struct WhitePoint
{
    float temperature = 0.0f;
    float tint = 0.0f;
    bool operator==(const WhitePoint&) const = default;
};

/// Row-major, for pixels of linearMelissaRGB().
using ColorMatrix = std::array<float, 9>;

/// The matrix that makes the neutral of `target` neutral in pixels balanced for `present` and keeps the luminance of
/// grays: a scaling of cone responses (Lam 1985, "Bradford"). Empty if there is nothing to do: the two are equal, or
/// either is unknown.
[[nodiscard]] std::optional<ColorMatrix> whiteBalanceShift(const WhitePoint& present, const WhitePoint& target);

[[nodiscard]] inline PixelRGB<float> shifted(const PixelRGB<float>& p, const ColorMatrix& m)
{
    return {m[0] * p.r + m[1] * p.g + m[2] * p.b, m[3] * p.r + m[4] * p.g + m[5] * p.b,
            m[6] * p.r + m[7] * p.g + m[8] * p.b};
}

} // namespace orvo
