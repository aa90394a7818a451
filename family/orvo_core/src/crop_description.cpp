#include <orvo_core/crop_description.hpp>

#include <algorithm>
#include <cmath>
#include <limits>

namespace orvo {
namespace {

// A right angle in single precision is off by about 1e-7, which would resample every pixel for nothing.
constexpr double kRightAngle = 1e-6;

double snapped(double value)
{
    const double nearest = std::round(value);
    return std::abs(value - nearest) < kRightAngle ? nearest : value;
}

} // namespace

_Rect<int> CropDescription::getCropRect() const
{
    const auto scaled = [](int value, float factor) {
        const auto product = static_cast<double>(static_cast<float>(value) * factor);
        if (std::isnan(product))
            return 0;
        constexpr double kLeast = std::numeric_limits<int>::min();
        constexpr double kMost = std::numeric_limits<int>::max();
        return static_cast<int>(std::clamp(product, kLeast, kMost));
    };
    return {scaled(rect.x, scaleX), scaled(rect.y, scaleY), scaled(rect.width, scaleX), scaled(rect.height, scaleY)};
}

AffineTransform CropDescription::getAffineTransformForCanvas(const _Size<int>& size) const
{
    const _Rect<int> crop = getCropRect();
    double cosine = std::cos(static_cast<double>(angle));
    double sine = std::sin(static_cast<double>(angle));
    if (snapped(sine) == 0.0 || snapped(cosine) == 0.0) {
        sine = snapped(sine);
        cosine = snapped(cosine);
    }
    const double scaleOfX = size.width > 0 ? static_cast<double>(crop.width) / size.width : 1.0;
    const double scaleOfY = size.height > 0 ? static_cast<double>(crop.height) / size.height : 1.0;
    AffineTransform transform;
    transform.xx = cosine * scaleOfX;
    transform.xy = -sine * scaleOfY;
    transform.yx = sine * scaleOfX;
    transform.yy = cosine * scaleOfY;
    const double halfWidth = crop.width / 2.0;
    const double halfHeight = crop.height / 2.0;
    transform.x0 = crop.x + halfWidth - (cosine * halfWidth - sine * halfHeight);
    transform.y0 = crop.y + halfHeight - (sine * halfWidth + cosine * halfHeight);
    return transform;
}

} // namespace orvo
