/// For each pixel of a drawing its position on the sphere, or in a picture of a part of it.
#pragma once

#include "panorama/panorama_warper.hpp"
#include "panorama/warp_rows.hpp"

#include <opencv2/core/mat.hpp>

#include <functional>
#include <optional>

namespace orvo {

/// The maps of the pixels `out` of a drawing whose pixel (0, 0) shows `start` on the plane of the warper's projection,
/// and whose next columns and rows are `step` apart there. Positions are in sphere units, as of
/// PanoramaWarper::mapToIntermediate().
///
/// Whole maps would take more memory than the picture: beyond `keptPixels` the rows are computed again each time they
/// are used, with the same bits. Maps up to that size are kept, since those of a drag are used at once.
class SphereMaps
{
public:
    static constexpr int kKeptPixels = 1 << 22; ///< 32 MB of maps; a drag draws less

    /// The warper must outlive the maps, and keep its camera and rotation.
    SphereMaps(const PanoramaWarper& warper, const cv::Rect& out, const cv::Size2f& step, const cv::Point2f& start,
               int keptPixels = kKeptPixels);

    [[nodiscard]] cv::Size size() const { return out.size(); }

    /// From now on positions are those in a picture of `part` of the sphere, of `partPixels`, counted from `origin` in
    /// it. Once.
    void moveInto(const cv::Rect& part, const cv::Size& partPixels, const cv::Point& origin);

    /// Receives a range of rows, counted from the first of the maps, and columns and rows of the positions of each of
    /// their pixels, CV_32FC1. Called on many threads at once.
    using Use = std::function<void(const cv::Range& rows, const cv::Mat& x, const cv::Mat& y)>;
    void forEachStrip(const cv::Range& rows, const Use& use) const;

private:
    struct Place
    {
        float left, top, columnsPerUnit, rowsPerUnit, originX, originY;
    };

    void fillRow(int row, float* x, float* y) const;
    void moveRow(float* x, float* y) const;

    cv::Rect out;
    WarpRows warpRows;
    float step;
    float top;
    std::optional<Place> place;
    cv::Mat keptX; // empty if they are too large
    cv::Mat keptY;
};

} // namespace orvo
