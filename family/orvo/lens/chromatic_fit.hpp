// Measures lateral chromatic aberration: how much larger red and blue are imaged than green.
#pragma once

#include <orvo_core/image_data.hpp>

#include <vector>

namespace orvo::details {

enum class Channel
{
    Red,
    Blue
};

/// A point at the distance r from the centre in green is at r * (1 + constant + cubic * (r / R)^2) in the other
/// channel; R is half the diagonal of the picture.
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

/// A square around an edge across the direction to the centre, where a radial shift shows best.
struct EdgePatch
{
    int x = 0; ///< centre
    int y = 0;
};

/// Places to measure, spread over the picture, found in its green channel. The same for any number of threads.
[[nodiscard]] std::vector<EdgePatch> findEdgePatches(const _ImageData<PixelRGB<float>>& image);

/// The scale of `channel`, fitted robustly to the shifts of the patches; both terms are zero if the fit is not
/// significant or not plausible.
[[nodiscard]] RadialScale fitRadialScale(const _ImageData<PixelRGB<float>>& image, Channel channel,
                                         const std::vector<EdgePatch>& patches);

/// Scales `channel` back, in place, by cubic interpolation (Keys 1981). Peak: one plane of floats of the picture's
/// size.
void undoRadialScale(_ImageData<PixelRGB<float>>& image, Channel channel, const RadialScale& scale);

} // namespace orvo::details
