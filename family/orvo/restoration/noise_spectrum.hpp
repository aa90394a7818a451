/// How much noise a picture has, by brightness and by cosine.
#pragma once

#include "restoration/cosines.hpp"

#include <orvo_core/image_data.hpp>

#include <array>
#include <vector>

namespace orvo::details {

/// A camera's noise depends on the brightness, and what demosaicing and compression leave of it is not white. So its
/// power is measured cosine by cosine in the quietest blocks of each brightness, as by Lebrun, Colom, Morel,
/// "Multiscale image blind denoising", IEEE Transactions on Image Processing 24(10), 2015. What is measured at a
/// coarser scale is limited by what the finer one shows at the same waves: noise has no more power in long waves than
/// in the longest that a block sees, while texture has.
///
/// Of pictures whose first channel is the sum of red, green and blue over the root of 3; the channels are uncorrelated.
class NoiseSpectrum
{
public:
    /// Power of the cosines of a block of each channel; all 0 where there is no noise.
    struct Power
    {
        CosineBlock channel[3] = {};
    };

    /// `finer`: the spectrum of the picture of twice the size, or null; only used while this one is made.
    NoiseSpectrum(const _ImageData<PixelRGB<float>>& picture, const NoiseSpectrum* finer);

    /// At a block whose first channel has this mean.
    [[nodiscard]] const Power& at(float mean) const;

private:
    static constexpr int kBins = 16;      // of brightness, evenly from black to white,
    static constexpr int kSteps = 16 * 4; // and what is made of them by interpolation

    struct Sample
    {
        int x, y, bin;
        float energy[3]; ///< of all cosines but the mean
    };
    [[nodiscard]] static std::vector<Sample> samplesOf(const _ImageData<PixelRGB<float>>& picture);
    void measure(const _ImageData<PixelRGB<float>>& picture, std::vector<Sample>& samples, int channel);
    void limitBy(const NoiseSpectrum& finer);
    void interpolate();

    std::array<Power, kBins> bins;
    std::array<std::array<bool, 3>, kBins> known = {};
    std::vector<Power> steps;
};

} // namespace orvo::details
