#include <orvo/bracket_exposure.hpp>

#include <cmath>

namespace orvo {

float exposureValue(const ImageMetadata* metadata)
{
    if (metadata == nullptr)
        return 0.0f;
    // NaN would make the order of the frames meaningless, because it compares with nothing.
    const float offset = std::isfinite(metadata->exposureOffset) ? metadata->exposureOffset : 0.0f;
    if (!metadata->hasExposure())
        return offset;
    const double light = static_cast<double>(metadata->shutterSeconds) * (metadata->isoSpeed / 100.0) /
                         (static_cast<double>(metadata->aperture) * metadata->aperture);
    const double ev = std::log2(light);
    return std::isfinite(ev) ? static_cast<float>(ev) + offset : offset;
}

} // namespace orvo
