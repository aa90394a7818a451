/// Edge-preserving smoothing of a colour picture.
#pragma once

#include <orvo_common/export.hpp>
#include <orvo_core/geometry.hpp>
#include <orvo_core/pixel.hpp>

#include <cstddef>
#include <memory>

namespace orvo {

/// Guided filter of the picture by itself: He, Sun, Tang, "Guided image filtering", 2010 (the colour form, with the
/// 3x3 covariance of each window), with the coefficients on a reduced grid as in He, Sun, "Fast guided filter", 2015.
/// Departure: the moments of a window sum all of its pixels, not a subsampled picture, so that fine texture keeps its
/// full variance; only the coefficients are coarse.
///
/// `source` and `target` are `width` x `height` pixels and must not overlap; values of any range. A window extends
/// `radius` pixels to each side and is clipped at the border of the picture; means are over the remaining pixels.
/// `eps` is added to the variances (in squares of the values): 0 reproduces the picture, a very large one gives the
/// mean of the window means; negative values and NaN count as 0. A radius below 1 copies; a radius larger than the
/// picture means the whole picture. A block of pixels with a non-finite value counts as black in its windows.
///
/// Time per pixel does not grow with the radius. Blocks have a side of radius / 4, clamped to 1..16 pixels; scratch
/// is 9 floats per block (at radius 64 and more less than 2 percent of the picture; at most 3 times the picture,
/// below radius 8) and some rows per thread. Any thread; parallel; bit-identical for any number of threads. Throws
/// std::bad_alloc.
ORVO_EXPORT void grfx_guided_filter_rgb_fast(const PixelRGB<float>* source, PixelRGB<float>* target, int width,
                                             int height, float radius, float eps);

/// The same filter in steps, for pictures that exist only by rows and for results that are needed only in places:
/// measure() or measureLike() for each block row, solve(), then apply() for any tiles. Radius of at least 1, eps above
/// 0. Calls for different block rows, and for different tiles, may run in parallel.
class ORVO_EXPORT GuidedFilter
{
public:
    GuidedFilter(int width, int height, float radius, float eps);
    ~GuidedFilter();
    GuidedFilter(const GuidedFilter&) = delete;
    GuidedFilter& operator=(const GuidedFilter&) = delete;

    [[nodiscard]] int blockRows() const;
    [[nodiscard]] int firstRow(int blockRow) const;
    [[nodiscard]] int endRow(int blockRow) const; ///< one past the last

    /// `rows`: all pixels of the block row, contiguous.
    void measure(int blockRow, const PixelRGB<float>* rows);
    /// For a block row whose pixels equal those of `other`, which has the same shape and is not yet solved.
    void measureLike(int blockRow, const GuidedFilter& other);
    void solve();

    /// Pixels across or down beyond which a pixel has no influence on the result.
    [[nodiscard]] int influence() const;

    [[nodiscard]] int tileColumns() const;
    [[nodiscard]] int tileRows() const;
    [[nodiscard]] _Rect<int> tile(int column, int row) const; ///< may be of height 0
    /// `source` and `target` are the first pixels of the tile, strides are in pixels.
    void apply(int column, int row, const PixelRGB<float>* source, PixelRGB<float>* target, std::size_t sourceStride,
               std::size_t targetStride) const;

private:
    struct State;
    std::unique_ptr<State> state;
};

} // namespace orvo
