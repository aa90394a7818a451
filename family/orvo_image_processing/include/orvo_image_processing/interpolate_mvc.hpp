/// A smooth surface over a region from the values along its edge.
#pragma once

#include <orvo_common/export.hpp>
#include <orvo_core/pixel.hpp>

#include <vector>

namespace orvo {

/// Fills `membrane` where `effective` is not 0 with the mean value interpolation of `boundary` along the edge of that
/// region. All planes hold `width` x `height` pixels, row after row; `hardPixels` holds one bit a pixel, and bits that
/// it does not have count as clear.
///
/// An edge pixel is one of the region that touches, also by a corner, a pixel of the plane outside the region. It keeps
/// its value of `boundary`. The border of the plane is no edge: the region is cut there, and nothing is known of what
/// lies beyond. Where the edge is cut, and where an edge pixel is set in `hardPixels` or has a value that is not
/// finite, the missing value is the mean of the known ones, each weighted with the inverse square of its distance. A
/// value that is the same all along the known edge is therefore carried unchanged to the ends of the plane.
///
/// Parts of the region that do not touch by a side do not know of each other. A part without a known edge pixel, and
/// all pixels outside the region, keep what `membrane` holds. `boundary` is read at edge pixels only. No result lies
/// outside the range of its part's known values; linear functions are reproduced within 0.5 percent of their range
/// wherever the whole edge is known, also around holes and corners. `effective` is only read. `boundary` and `membrane`
/// may be the same plane.
///
/// Any thread; parallel; the same bits for any number of threads. Scratch: 1.7 bytes a pixel and about 200 bytes for
/// each pixel of edge and cut. The time grows with the length of the edge times its logarithm, and very slowly with the
/// area. Throws std::bad_alloc.
///
/// Method: Floater, "Mean value coordinates", CAGD 20(1), 2003, over the polygon through the edge pixels, with signed
/// angles, which makes it hold for any region with holes: Hormann and Floater, "Mean value coordinates for arbitrary
/// planar polygons", ACM TOG 25(4), 2006. Far stretches of the polygon are taken together, and the inside is sampled at
/// steps that grow with the distance from the edge: Farbman et al., "Coordinates for instant image cloning", ACM TOG
/// 28(3), 2009. The convolution pyramids of Farbman, Fattal, Lischinski, "Convolution pyramids", ACM TOG 30(6), 2011,
/// are as fast and lost on error: their inverse cubes bend a linear function by 6 to 18 percent of its range.
ORVO_EXPORT void interpolate_mvc(int width, int height, const PixelRGB<float>* boundary, PixelRGB<float>* membrane,
                                 unsigned char* effective, const std::vector<bool>& hardPixels);

} // namespace orvo
