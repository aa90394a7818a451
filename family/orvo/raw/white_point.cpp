#include "raw/white_point.hpp"

#include <orvo_core/planckian_locus.hpp>

#include <algorithm>
#include <cmath>

namespace orvo {
namespace {

using Vector = std::array<double, 3>;
using Square = std::array<Vector, 3>;

constexpr double kTintUnit = 3000.0;
// The range in which a temperature is meaningful and photographs occur.
constexpr double kLowestTemperature = 1000.0;
constexpr double kHighestTemperature = 50000.0;
constexpr double kLargestTint = 150.0;

// Lam's cone responses to XYZ.
constexpr Square kBradford = {{{0.8951, 0.2664, -0.1614}, {-0.7502, 1.7135, 0.0367}, {0.0389, -0.0685, 1.0296}}};
// XYZ (white D50) of linear light with the primaries of ISO 22028-2.
constexpr Square kXyzFromRgb = {
    {{0.7976749, 0.1351917, 0.0313534}, {0.2880402, 0.7118741, 0.0000857}, {0.0, 0.0, 0.8252100}}};

Vector times(const Square& m, const Vector& v)
{
    Vector out{};
    for (std::size_t r = 0; r < 3; ++r)
        out[r] = m[r][0] * v[0] + m[r][1] * v[1] + m[r][2] * v[2];
    return out;
}

Square times(const Square& a, const Square& b)
{
    Square out{};
    for (std::size_t r = 0; r < 3; ++r)
        for (std::size_t c = 0; c < 3; ++c)
            out[r][c] = a[r][0] * b[0][c] + a[r][1] * b[1][c] + a[r][2] * b[2][c];
    return out;
}

Square inverse(const Square& m)
{
    const auto minor = [&m](std::size_t r, std::size_t c) {
        const std::size_t r1 = (r + 1) % 3;
        const std::size_t r2 = (r + 2) % 3;
        const std::size_t c1 = (c + 1) % 3;
        const std::size_t c2 = (c + 2) % 3;
        return m[r1][c1] * m[r2][c2] - m[r1][c2] * m[r2][c1];
    };
    const double determinant = m[0][0] * minor(0, 0) + m[0][1] * minor(0, 1) + m[0][2] * minor(0, 2);
    Square out{};
    for (std::size_t r = 0; r < 3; ++r)
        for (std::size_t c = 0; c < 3; ++c)
            out[c][r] = minor(r, c) / determinant;
    return out;
}

// XYZ, with Y = 1, of a white: perpendicular to the locus, downwards for magenta.
Vector xyzOf(const WhitePoint& white)
{
    const double t = std::clamp(static_cast<double>(white.temperature), kLowestTemperature, kHighestTemperature);
    const double tint = std::clamp(static_cast<double>(white.tint), -kLargestTint, kLargestTint);
    const auto at = planckianLocus(t);
    const auto beside = planckianLocus(t * 1.001);
    const double du = beside[0] - at[0];
    const double dv = beside[1] - at[1];
    const double length = std::hypot(du, dv);
    // Towards higher temperatures the locus has smaller u and v; magenta is to its left in that direction.
    const double u = at[0] - dv / length * tint / kTintUnit;
    const double v = at[1] + du / length * tint / kTintUnit;
    const double scale = 2.0 * u - 8.0 * v + 4.0;
    const double x = 3.0 * u / scale;
    const double y = 2.0 * v / scale;
    return {x / y, 1.0, (1.0 - x - y) / y};
}

bool isKnown(const WhitePoint& white)
{
    return std::isfinite(white.temperature) && std::isfinite(white.tint) && white.temperature > 0.0f;
}

} // namespace

std::optional<ColorMatrix> whiteBalanceShift(const WhitePoint& present, const WhitePoint& target)
{
    if (!isKnown(present) || !isKnown(target) || present == target)
        return std::nullopt;
    const Vector from = times(kBradford, xyzOf(target));
    const Vector to = times(kBradford, xyzOf(present));
    Square gains{};
    for (std::size_t i = 0; i < 3; ++i)
        gains[i][i] = to[i] / from[i];
    const Square adapted = times(times(inverse(kBradford), gains), kBradford);
    Square whole = times(times(inverse(kXyzFromRgb), adapted), kXyzFromRgb);
    const Vector gray = times(whole, Vector{1.0, 1.0, 1.0});
    const double luminance = times(kXyzFromRgb, gray)[1];
    ColorMatrix out{};
    for (std::size_t r = 0; r < 3; ++r)
        for (std::size_t c = 0; c < 3; ++c)
            out[r * 3 + c] = static_cast<float>(whole[r][c] / luminance);
    return out;
}

} // namespace orvo
