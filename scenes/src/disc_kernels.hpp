// Discs of any radius as weights on the pixel grid.
#pragma once

#include <orvo_core/pixel.hpp>

#include <vector>

namespace orvo::scenes {

/// The discs of all radii up to a largest one, in invisibly small steps.
///
/// A disc has full weight inside and falls to 0 across one pixel at its rim, so it changes smoothly with its radius.
/// That rim alone would make small discs too narrow (below half a pixel only the middle remains) and wide ones too
/// wide; each is therefore constructed with the radius whose weights have the second moment of the true disc, r^2/4
/// along each axis. Weights sum to 1 and none is negative.
class DiscKernels
{
public:
    static constexpr float kStepsPerPixel = 32.0f; ///< radii per pixel

    /// `largestRadius` in pixels, 0 or more.
    explicit DiscKernels(double largestRadius);

    /// Pixels that the disc of `radius` extends beyond its middle.
    [[nodiscard]] int reach(float radius) const { return nearest(radius).reach; }

    /// The mean of the disc of `radius` around `middle`, a sample of a plane of `stride` samples per row that has
    /// reach(radius) more samples on every side. A radius beyond the largest counts as the largest.
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
