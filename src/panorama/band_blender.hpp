/// Blends pictures in frequency bands.
#pragma once

#include <opencv2/core/mat.hpp>

#include <vector>

namespace orvo {

/// The bands of Burt and Adelson (ACM Transactions on Graphics 2(4), 1983): each picture is split into bands, which are
/// added with the mask, blurred as much as the band. The same bits as cv::detail::MultiBandBlender with weights of
/// floats, but in parallel, for any number of threads, and in less memory: parts of the canvas that no picture has
/// reached take none. Used by one thread at a time.
///
/// Peak: 14 bytes per pixel of the canvas, as far as pictures were fed there, and 14 per pixel of the present picture.
class BandBlender
{
public:
    /// The canvas contains the rectangles at `corners`, which are not empty. `bands` from 0 on.
    BandBlender(const std::vector<cv::Point>& corners, const std::vector<cv::Size>& sizes, int bands);

    /// Adds a picture (CV_16SC3), which is released as soon as it has been read, with its weights: `mask` (CV_8UC1),
    /// 255 for 1, 0 outside. Pixels of which the picture is a submatrix are its border.
    void feed(cv::UMat picture, const cv::Mat& mask, cv::Point corner);

    /// The canvas (CV_16SC3) and, 255 or 0, what has weights (CV_8UC1). Called once, at the end.
    void blend(cv::Mat& picture, cv::Mat& mask);

private:
    // A band of the canvas, zero where nothing was added.
    struct Band
    {
        cv::Mat sums;    // CV_16SC3
        cv::Mat weights; // CV_32FC1
    };

    static void add(Band& band, const cv::Point& place, const cv::Mat& level, const cv::Mat& coarser,
                    const cv::Mat& weights);
    static void restore(Band& band, const cv::Mat& coarser);

    cv::Rect canvas; // rounded up to the unit of the last band
    cv::Size shown;
    std::vector<Band> bands; // from fine to coarse
};

} // namespace orvo
