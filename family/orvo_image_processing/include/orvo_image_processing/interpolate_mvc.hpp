/// Interpolates the values along the edge of a region smoothly into its inside.
#pragma once

#include <orvo_common/export.hpp>
#include <orvo_core/pixel.hpp>

#include <vector>

namespace orvo {

/// Fills `membrane` where `effective` is nonzero with the mean value interpolation of `boundary` along the edge of that
/// region. All planes have `width` x `height` pixels, row after row; `hardPixels` has one bit per pixel; missing bits
/// count as 0.
///
/// An edge pixel is a pixel of the region with at least one of its eight neighbours in the plane but outside of the
/// region. It keeps its value of `boundary`. The border of the plane is not an edge: it cuts the region, and values
/// beyond are unknown. Where the edge is cut, and where an edge pixel is set in `hardPixels` or has a value that is not
/// finite, the missing value is the mean of the known ones, weighted with the inverse square of their distance. A value
/// constant along the known edge therefore continues unchanged to the border of the plane.
///
/// Parts of the region without a common pixel side are independent. A part without a known edge pixel, and all pixels
/// outside of the region, keep the content of `membrane`. Reads `boundary` at edge pixels only. Results stay in the
/// range of their part's known values; linear functions are reproduced within 0.5 percent of their range if the whole
/// edge is known, also around holes and corners. `effective` is only read. `boundary` and `membrane` may be the same
/// plane.
///
/// Any thread; parallel; the same bits for any number of threads. Scratch: 1.7 bytes per pixel and about 200 bytes per
/// pixel of edge and cut. The time grows with n log n for an edge of n pixels, and very slowly with the area. Throws
/// std::bad_alloc.
///
/// Method: Floater, "Mean value coordinates", CAGD 20(1), 2003, over the polygon through the edge pixels, with signed
/// angles, so that it holds for any region with holes: Hormann and Floater, "Mean value coordinates for arbitrary
/// planar polygons", ACM TOG 25(4), 2006. Distant parts of the polygon are summed in groups, and the inside is sampled
/// at steps that grow with the distance from the edge: Farbman et al., "Coordinates for instant image cloning", ACM TOG
/// 28(3), 2009. Rejected: the convolution pyramids of Farbman, Fattal, Lischinski, "Convolution pyramids", ACM TOG
/// 30(6), 2011, are as fast but less accurate: their inverse cubes bend a linear function by 6 to 18 percent of its
/// range.
ORVO_EXPORT void interpolate_mvc(int width, int height, const PixelRGB<float>* boundary, PixelRGB<float>* membrane,
                                 unsigned char* effective, const std::vector<bool>& hardPixels);

} // namespace orvo
