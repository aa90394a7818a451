/// Measuring and undoing the blur of a small plane of luminance.
#pragma once

#include <orvo_common/memory_manager.hpp>

#include <opencv2/core.hpp>

#include <atomic>
#include <cstddef>

namespace orvo {

/// A plane of float samples from MemoryManager that OpenCV can work on.
class FacePlane
{
public:
    explicit FacePlane(cv::Size size);
    /// The samples; shares them, so it must not outlive the plane.
    [[nodiscard]] const cv::Mat& mat() const { return header; }
    [[nodiscard]] float* row(int y) const { return samples.data() + static_cast<std::ptrdiff_t>(y) * header.cols; }
    [[nodiscard]] cv::Size size() const { return header.size(); }

private:
    ManagedPlane<float> samples;
    cv::Mat header;
};

/// The size that the planes below need: at least `size`, both sides even and quick to transform.
[[nodiscard]] cv::Size transformSize(cv::Size size);

/// Standard deviation of the noise of encoded luminance: the median of the diagonal differences of 2x2 pixels (Donoho
/// and Johnstone, Biometrika 81(3), 1994), of the plane and of its half, whichever is larger, since noise of an
/// enlarged picture shows only in the second.
[[nodiscard]] double measuredNoise(const cv::Mat& luminance);

/// Sigma in pixels of the Gaussian that blurs the sharpest edges; 0 if there are too few edges to tell. From how much
/// the slope of an edge falls when it is blurred once more (Zhuo and Sim, Pattern Recognition 44(9), 2011).
[[nodiscard]] double measuredBlur(const cv::Mat& luminance, double noise);

/// Turns `luminance`, blurred by a Gaussian of `sigma` pixels, into what has to be added to it to undo that: by
/// deconvolution with a sparse prior on slopes. Noise is not raised with it. Limited so that no sample leaves the range
/// of its surroundings by more than a little. `contrast` gets the range (largest less smallest sample) of the
/// surroundings. False if `cancel` was set; the planes then hold nothing of use. Both have a transformSize().
[[nodiscard]] bool lostDetail(const FacePlane& luminance, const FacePlane& contrast, double sigma, double noise,
                              const std::atomic<bool>* cancel);

} // namespace orvo
