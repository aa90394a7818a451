/// Measures and corrects the blur of a small plane of luminance.
#pragma once

#include <orvo_common/memory_manager.hpp>
#include <orvo_common/run_control.hpp>

#include <opencv2/core.hpp>

#include <cstddef>

namespace orvo {

/// A plane of float samples from MemoryManager that OpenCV can work on.
class FacePlane
{
public:
    explicit FacePlane(cv::Size size);
    /// A header that shares the samples, so it must not outlive the plane.
    [[nodiscard]] const cv::Mat& mat() const { return header; }
    [[nodiscard]] float* row(int y) const { return samples.data() + static_cast<std::ptrdiff_t>(y) * header.cols; }
    [[nodiscard]] cv::Size size() const { return header.size(); }

private:
    ManagedPlane<float> samples;
    cv::Mat header;
};

/// The required size of the planes below: at least `size`, with both sides even and fast to transform.
[[nodiscard]] cv::Size transformSize(cv::Size size);

/// Standard deviation of the noise of encoded luminance: the median of the diagonal differences of 2x2 pixels (Donoho
/// and Johnstone, Biometrika 81(3), 1994), the larger of that of the plane and that of its half, because the noise of
/// an enlarged picture shows only in the second.
[[nodiscard]] double measuredNoise(const cv::Mat& luminance);

/// Sigma in pixels of the Gaussian that blurs the sharpest edges; 0 if there are too few edges. Measured by how much
/// the slope of an edge decreases when it is blurred once more (Zhuo and Sim, Pattern Recognition 44(9), 2011).
[[nodiscard]] double measuredBlur(const cv::Mat& luminance, double noise);

/// Replaces `luminance`, blurred by a Gaussian of `sigma` pixels, by the correction to add to it, from a deconvolution
/// with a sparse prior on slopes. Does not amplify noise. Limited so that no sample leaves the range of its
/// surroundings by more than a little. `contrast` receives the range (largest minus smallest sample) of the
/// surroundings. False if `run` was cancelled; the planes are then unusable. Both must have a transformSize().
[[nodiscard]] bool lostDetail(const FacePlane& luminance, const FacePlane& contrast, double sigma, double noise,
                              const RunControl& run);

} // namespace orvo
