/// Registers a picture by its correlation with a reference.
#pragma once

#include <opencv2/core/mat.hpp>

namespace orvo {

/// When the iterations end.
struct CorrelationLimits
{
    int iterations = 100;
    double smallestGain = 0.001; ///< of the correlation coefficient, from one iteration to the next
};

/// A gray picture of 8 bits that others are registered against, by maximising the enhanced correlation coefficient over
/// homographies (Evangelidis, Psarakis, PAMI 30(10), 2008, forwards additive). Sums are those of the rows in their
/// order, so results have the same bits for any number of threads.
class CorrelationReference
{
public:
    explicit CorrelationReference(const cv::Mat& gray);

    /// Improves `frameFromReference` (CV_32F 3x3). False if it does not converge, or if the pictures turn out to be
    /// uncorrelated; it then is where the iterations left it. Peak: ten planes of floats; Jacobians take a few rows.
    [[nodiscard]] bool align(const cv::Mat& gray, const CorrelationLimits& limits, cv::Mat& frameFromReference) const;

private:
    cv::Mat reference; // CV_32F, smoothed
};

} // namespace orvo
