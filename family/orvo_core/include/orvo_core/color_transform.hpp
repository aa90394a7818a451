/// Colour conversion of single rows, for code that decodes or fills pictures by rows.
#pragma once

#include <orvo_common/export.hpp>
#include <orvo_core/color_profile.hpp>
#include <orvo_core/pixel.hpp>

#include <cstdint>
#include <memory>

namespace orvo {

/// Converts rows of samples to pixels of a profile, with the same results as _ImageData::colorTransform() for whole
/// pictures. Immutable; convert() may be called from many threads at once.
class ORVO_EXPORT RowConverter
{
public:
    /// `sourceChannels` interleaved samples per pixel: 1 gray, 3 RGB, 4 CMYK. Gray samples count as neutral pixels if
    /// `source` is an RGB profile. An empty profile is ColorProfileType::None(), which converts nothing.
    /// Throws std::invalid_argument if the channels and the profile do not match (CMYK samples need a CMYK profile, and
    /// only they do; `target` is an RGB profile or a gray one with a single curve), std::runtime_error if the
    /// profile's tables do not support this direction.
    RowConverter(const std::shared_ptr<const ColorProfile>& source, int sourceChannels,
                 const std::shared_ptr<const ColorProfile>& target);
    ~RowConverter();
    RowConverter(RowConverter&&) noexcept;
    RowConverter& operator=(RowConverter&&) noexcept;

    /// Converts `count` pixels. 1.0 is full scale, and for CMYK full ink. `source` and `target` may be the same memory
    /// for three channels, otherwise they must not overlap.
    void convert(const float* source, PixelRGB<float>* target, int count) const;

    /// The same for samples of 8 bits, as if each were multiplied by the float nearest to 1/255 first. They must not
    /// overlap the pixels.
    void convert(const std::uint8_t* source, PixelRGB<float>* target, int count) const;

private:
    class Kernel;
    std::unique_ptr<const Kernel> kernel;
};

/// The curves of sRGB for many samples, in place: within 1e-6 of the single-sample results for 0..1, relative beyond.
ORVO_EXPORT void linearFromSRGBCurve(float* samples, int count);
ORVO_EXPORT void srgbCurveFromLinear(float* samples, int count);

} // namespace orvo
