/// Colour conversion of single rows, for those who decode or fill pictures row by row.
#pragma once

#include <orvo_common/export.hpp>
#include <orvo_core/color_profile.hpp>
#include <orvo_core/pixel.hpp>

#include <memory>

namespace orvo {

/// Converts rows of samples to pixels of a profile: what _ImageData::colorTransform() does to whole pictures, and with
/// the same results. Immutable; convert() may be called from many threads at once.
class ORVO_EXPORT RowConverter
{
public:
    /// `sourceChannels` interleaved samples make one pixel: 1 gray, 3 RGB, 4 CMYK. Gray samples are taken for neutral
    /// pixels where `source` is an RGB profile. An empty profile is ColorProfileType::None(), which converts nothing.
    /// Throws std::invalid_argument if the channels and the profile do not fit (CMYK samples need a CMYK profile, and
    /// only those do; `target` is an RGB profile or a gray one of one curve), std::runtime_error if the profile's
    /// tables do not serve this direction.
    RowConverter(const std::shared_ptr<const ColorProfile>& source, int sourceChannels,
                 const std::shared_ptr<const ColorProfile>& target);
    ~RowConverter();
    RowConverter(RowConverter&&) noexcept;
    RowConverter& operator=(RowConverter&&) noexcept;

    /// Converts `count` pixels. 1.0 is full scale, and for CMYK all ink. `source` and `target` may be the same memory
    /// if there are three channels, otherwise they must not overlap.
    void convert(const float* source, PixelRGB<float>* target, int count) const;

private:
    class Kernel;
    std::unique_ptr<const Kernel> kernel;
};

/// The curves of sRGB for many samples at once, in place: within 1e-6 of the single ones for 0..1, relatively so
/// beyond.
ORVO_EXPORT void linearFromSRGBCurve(float* samples, int count);
ORVO_EXPORT void srgbCurveFromLinear(float* samples, int count);

} // namespace orvo
