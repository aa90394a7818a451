/// The noise of a picture by brightness and DCT frequency.
#pragma once

#include "restoration/cosines.hpp"

#include <orvo_core/image_data.hpp>

#include <array>
#include <vector>

namespace orvo::details {

/// The noise of a camera depends on brightness, and demosaicing and compression leave it coloured. So its power is
/// measured per DCT frequency in the quietest blocks of each brightness, as in Lebrun, Colom, Morel, "Multiscale image
/// blind denoising", IEEE Transactions on Image Processing 24(10), 2015. The finer scale limits the measurement of a
/// coarser one at the same frequencies: below the lowest frequency of a block the power of noise does not grow, while
/// that of texture does.
///
/// Expects pictures with (red + green + blue) / sqrt(3) as first channel and uncorrelated channels.
class NoiseSpectrum
{
public:
    /// Power per DCT frequency of each channel; all 0 without noise.
    struct Power
    {
        CosineBlock channel[3] = {};
    };

    /// `finer`: the spectrum of the picture of twice the size, or null; used only during construction.
    NoiseSpectrum(const _ImageData<PixelRGB<float>>& picture, const NoiseSpectrum* finer);

    /// For a block whose first channel has this mean.
    [[nodiscard]] const Power& at(float mean) const;

private:
    static constexpr int kBins = 16;      // of brightness, evenly from black to white,
    static constexpr int kSteps = 16 * 4; // and the interpolated steps between them

    struct Sample
    {
        int x, y, bin;
        float energy[3]; ///< of all frequencies except the mean
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
