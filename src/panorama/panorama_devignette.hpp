/// Takes the darkening towards the corners out of a panorama's pictures.
///
/// One radial gain for all of them, g(r) = 1 + k1 r^2 + k2 r^4 + k3 r^6 in linear light, is fitted to pairs of pixels
/// that show the same scene at different distances from the optical centre: the even polynomial of Goldman, "Vignette
/// and Exposure Calibration and Compensation", IEEE PAMI 32(12), 2010, here with one curve of response known beforehand
/// and no exposures (those come after, by blocks).
///
/// Pictures are CV_16SC3 working matrices, masks CV_8UC1 (set where not 0), radius maps CV_32F (0 in the centre of the
/// source picture, 1 in its corners), all of one size for each picture, placed by their top-left corners on a common
/// plane. All functions are parallel over rows or blocks of pairs, give the same bytes for any number of threads, and
/// report nothing. One thread at a time.
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

    /// Finds k1, k2, k3, each 0..5, under which the pairs of encoded colours (1.0 full scale), seen at these radii,
    /// agree best once corrected: the mean of their squared differences by coordinate descent, with bisection for each
    /// coefficient, fifty rounds at most. Starts from the values that stand here. Without pairs all end within 0.001
    /// of 0. All four lists are of one length. Leaves `fitted` as it is. Peak: fourteen floats a pair.
    ///
    /// How near it comes depends on the radii that meet. Views of 50 degrees in a row, a vignette of 0.4, 0.2, 0.1: the
    /// gain is within 1 percent of the truth at an overlap of two thirds, 2.5 at a half, 7 at two fifths, 15 at a third
    /// and 22 at a fifth. With less overlap the descent puts all into `k1`, under which the views agree at their
    /// joints; a finer tolerance and more rounds do not help where the overlap is a fifth.
    void fit(const std::vector<PixelRGB<float>>& colorsA, const std::vector<PixelRGB<float>>& colorsB,
             const std::vector<float>& radiiA, const std::vector<float>& radiiB);
};

class PanoramaDevignette
{
public:
    /// Fits the gain on pairs of each picture with the one before it in the list, taken along the outlines of the
    /// overlaps of their `masks`, where the radii differ most. `seamMasks` is not read. Returns at once when it has run
    /// before.
    void fit(const std::vector<cv::Mat>& images, const std::vector<cv::Mat>& seamMasks,
             const std::vector<cv::Mat>& masks, const std::vector<cv::Point>& corners,
             const std::vector<cv::Mat>& radiusMaps);

    /// Corrects the pictures in place where their masks are set. Samples may end above full scale; only the ends of the
    /// type bound them. `seamMasks` and `corners` are not read. Peak: nothing beside the pictures.
    void process(std::vector<cv::Mat>& images, const std::vector<cv::Mat>& seamMasks, const std::vector<cv::Mat>& masks,
                 const std::vector<cv::Point>& corners, const std::vector<cv::Mat>& radiusMaps);

    [[nodiscard]] const devignette_t& model() const { return devignette; }

private:
    devignette_t devignette;
};

} // namespace orvo
