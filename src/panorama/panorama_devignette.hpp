/// Removes vignetting from a panorama's pictures.
///
/// One radial gain for all pictures, g(r) = 1 + k1 r^2 + k2 r^4 + k3 r^6 in linear light, is fitted to pairs of pixels
/// that show the same point at different distances from the optical centre: the even polynomial of Goldman, "Vignette
/// and Exposure Calibration and Compensation", IEEE PAMI 32(12), 2010, here with a known response curve and without
/// exposures (block gains follow later).
///
/// Pictures are CV_16SC3 working matrices, masks CV_8UC1 (set where not 0), radius maps CV_32F (0 in the centre of the
/// source picture, 1 in its corners). Those of one picture have one size; top-left corners place them on a common
/// plane. All functions are parallel over rows or blocks of pairs, give the same bytes for any number of threads, and
/// log nothing. One thread at a time.
#pragma once

#include <orvo_core/pixel.hpp>

#include <opencv2/core/mat.hpp>

#include <vector>

namespace orvo {

/// The gain and its solver.
struct devignette_t
{
    float k1 = 0.0f;
    float k2 = 0.0f;
    float k3 = 0.0f;
    bool fitted = false; ///< the model has been fitted

    /// Gain at the radius `r`.
    [[nodiscard]] float gain(float r) const
    {
        const float square = r * r;
        return 1.0f + k1 * square + k2 * square * square + k3 * square * square * square;
    }

    /// Finds k1, k2, k3, each 0..5, for which the pairs of encoded colours (1.0 full scale) at these radii agree best
    /// after correction: minimises the mean of their squared differences by coordinate descent, with bisection for each
    /// coefficient, at most fifty rounds. Starts from the current values. Without pairs all end within 0.001 of 0. All
    /// four lists have one length. Does not change `fitted`. Peak: fourteen floats per pair.
    ///
    /// The accuracy depends on the radii that overlap. For views of 50 degrees in a row and a vignette of 0.4, 0.2,
    /// 0.1, the gain is within 1 percent of the truth at an overlap of two thirds, 2.5 at a half, 7 at two fifths, 15
    /// at a third and 22 at a fifth. With little overlap the descent puts all correction into `k1`, with which the
    /// views agree at their seams; a finer tolerance and more rounds do not help at an overlap of a fifth.
    void fit(const std::vector<PixelRGB<float>>& colorsA, const std::vector<PixelRGB<float>>& colorsB,
             const std::vector<float>& radiiA, const std::vector<float>& radiiB);
};

class PanoramaDevignette
{
public:
    /// Fits the gain to pairs of pixels of each picture and the previous one in the list, sampled along the outlines of
    /// the overlaps of their `masks`, where the radii differ most. `seamMasks` is not read. Returns at once if it has
    /// already run.
    void fit(const std::vector<cv::Mat>& images, const std::vector<cv::Mat>& seamMasks,
             const std::vector<cv::Mat>& masks, const std::vector<cv::Point>& corners,
             const std::vector<cv::Mat>& radiusMaps);

    /// Corrects the pictures in place where their masks are set. Samples may exceed full scale; only the range of the
    /// type limits them. `seamMasks` and `corners` are not read. Peak: nothing in addition to the pictures.
    void process(std::vector<cv::Mat>& images, const std::vector<cv::Mat>& seamMasks, const std::vector<cv::Mat>& masks,
                 const std::vector<cv::Point>& corners, const std::vector<cv::Mat>& radiusMaps);

    [[nodiscard]] const devignette_t& model() const { return devignette; }

private:
    devignette_t devignette;
};

} // namespace orvo
