// Measures lateral chromatic aberration: how much larger red and blue are drawn than green.
#pragma once

#include <orvo_core/image_data.hpp>

#include <vector>

namespace orvo::details {

enum class Channel
{
    Red,
    Blue
};

/// What is drawn at the distance r from the centre in green lies at r * (1 + constant + cubic * (r / R)^2) in the
/// other channel; R is half the diagonal of the picture.
struct RadialScale
{
    double constant = 0.0;
    double cubic = 0.0;

    /// Shift outwards in pixels at `radius` pixels from the centre, in a picture of the half diagonal `halfDiagonal`.
    [[nodiscard]] double shift(double radius, double halfDiagonal) const
    {
        const double share = radius / halfDiagonal;
        return radius * (constant + cubic * share * share);
    }
};

/// A square about an edge that runs across the direction to the centre, where a radial shift shows best.
struct EdgePatch
{
    int x = 0; ///< centre
    int y = 0;
};

/// Places to measure at, spread over the picture, found in its green channel. The same for any number of threads.
[[nodiscard]] std::vector<EdgePatch> findEdgePatches(const _ImageData<PixelRGB<float>>& image);

/// The scale of `channel`, fitted robustly to the shifts of the patches; zero in both terms if the fit is not
/// significant or not plausible.
[[nodiscard]] RadialScale fitRadialScale(const _ImageData<PixelRGB<float>>& image, Channel channel,
                                         const std::vector<EdgePatch>& patches);

/// Scales `channel` back, in place, by cubic interpolation (Keys 1981). Peak: one plane of floats of the picture's
/// size.
void undoRadialScale(_ImageData<PixelRGB<float>>& image, Channel channel, const RadialScale& scale);

} // namespace orvo::details
