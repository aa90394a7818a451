#include "raw/white_point.hpp"

#include <orvo_core/planckian_locus.hpp>

#include <opencv2/core.hpp>

#include <algorithm>
#include <cmath>
#include <iterator>

namespace orvo {
namespace {

constexpr double kTintUnit = 3000.0;
// The range in which a temperature is meaningful and photographs occur.
constexpr double kLowestTemperature = 1000.0;
constexpr double kHighestTemperature = 50000.0;
constexpr double kLargestTint = 150.0;

// Lam's cone responses to XYZ.
const cv::Matx33d kBradford(0.8951, 0.2664, -0.1614, -0.7502, 1.7135, 0.0367, 0.0389, -0.0685, 1.0296);
// XYZ (white D50) of linear light with the primaries of ISO 22028-2.
const cv::Matx33d kXyzFromRgb(0.7976749, 0.1351917, 0.0313534, 0.2880402, 0.7118741, 0.0000857, 0.0, 0.0, 0.8252100);

// XYZ, with Y = 1, of a white: perpendicular to the locus, downwards for magenta.
cv::Vec3d xyzOf(const WhitePoint& white)
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
    const cv::Vec3d from = kBradford * xyzOf(target);
    const cv::Vec3d to = kBradford * xyzOf(present);
    const auto gains = cv::Matx33d::diag({to[0] / from[0], to[1] / from[1], to[2] / from[2]});
    const cv::Matx33d adapted = kBradford.inv() * gains * kBradford;
    const cv::Matx33d whole = kXyzFromRgb.inv() * adapted * kXyzFromRgb;
    const double luminance = (kXyzFromRgb * whole * cv::Vec3d::all(1.0))[1];
    ColorMatrix out{};
    std::transform(std::begin(whole.val), std::end(whole.val), out.begin(),
                   [luminance](double element) { return static_cast<float>(element / luminance); });
    return out;
}

} // namespace orvo
