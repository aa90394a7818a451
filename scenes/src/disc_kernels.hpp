// Discs of any radius as weights on the pixel grid.
#pragma once

#include <orvo_core/pixel.hpp>

#include <vector>

namespace orvo::scenes {

/// The discs of all radii up to a largest one, in steps so small that nobody sees them.
///
/// A disc has full weight inside and falls to nothing across one pixel at its rim, so it changes smoothly with its
/// radius. That rim alone would leave small discs too narrow (below half a pixel nothing but the middle) and wide ones
/// too wide; each is therefore made of the radius whose weights have the second moment of the true disc, r^2/4 along
/// each axis. Weights sum to 1 and none is negative.
class DiscKernels
{
public:
    static constexpr float kStepsPerPixel = 32.0f; ///< radii from pixel to pixel

    /// `largestRadius` in pixels, 0 or more.
    explicit DiscKernels(double largestRadius);

    /// Pixels that the disc of `radius` reaches beyond its middle.
    [[nodiscard]] int reach(float radius) const { return nearest(radius).reach; }

    /// The mean of the disc of `radius` around `middle`, a sample of a plane of `stride` samples per row that goes on
    /// for reach(radius) samples on every side. A radius beyond the largest counts as the largest.
    [[nodiscard]] PixelRGBA<float> mean(const PixelRGBA<float>* middle, int stride, float radius) const;

    /// The weight at a distance of (x, y) pixels from the middle.
    [[nodiscard]] float weight(float radius, int x, int y) const;

private:
    struct Disc
    {
        int reach = 0;
        std::vector<int> halfWidths; // of the rows -reach..reach
        std::vector<float> weights;  // row by row, from -halfWidth to halfWidth
    };
    [[nodiscard]] static Disc discOf(double radius);
    [[nodiscard]] const Disc& nearest(float radius) const;

    std::vector<Disc> discs;
};

} // namespace orvo::scenes
