/// Changes the detail and the range of a grey plane without halos.
#pragma once

#include <orvo_common/export.hpp>

#include <cstdint>

namespace orvo::grfx {

/// Full scale of the samples of local_laplacian_gray16(): 15 bits.
inline constexpr float kGray16White = 32767.0f;

/// Local Laplacian filter, in place: Paris, Hasinoff, Kautz, "Local Laplacian filters", 2011, with the intensity
/// sampling of Aubry, Paris, Hasinoff, Kautz, Durand, "Fast local Laplacian filters", 2014.
///
/// `data` has `height` rows of `width` samples, `stride` samples apart (at least `width`), 0..kGray16White; negative
/// samples count as 0. The detail around a pixel of intensity g is that of the picture after a curve through g: a
/// difference d from g of up to t = `edgeThreshold` (fraction of full scale, clamped to 1/1024..1) is detail; the part
/// above t is an edge and is multiplied by `edgeGain`.
///   detail     log2 of the gain G of small differences, clamped to -6..6; 0 keeps, negative smooths. With x = d / t
///              a detail becomes t (G x + (1 - G) (x^2 / 4 + 3 x^3 / 4)) when smoothed, t G x / (1 + (G - 1) x) when
///              amplified: slope G at 0, and t stays t.
///   floor      differences below it (fraction of full scale) are noise and are not amplified, those above twice the
///              floor fully, with a smooth transition; 0: none. Ignored by smoothing. Takes full effect where the
///              samples are closer than half of it.
///   samples    number of intensities at which the curve is sampled, evenly in 0..1; 9 are plenty for t of 1/4 and
///              more. Clamped to 2..256.
///   edgeGain   1 keeps the range, below 1 compresses it; negative counts as 0. At most 4.
/// A NaN parameter counts as neutral. detail 0 with edgeGain 1 is the identity.
///
/// Time grows with width * height * samples. The samples are processed one after another, so scratch does not grow with
/// their number: 2 float planes of the picture's size (one whole, three pyramids from half size down) and some rows per
/// thread. Any thread; parallel; bit-identical for any number of threads. Throws std::bad_alloc.
ORVO_EXPORT void local_laplacian_gray16(std::int16_t* data, int width, int height, int stride, float detail,
                                        float floor, int samples, float edgeThreshold, float edgeGain);

} // namespace orvo::grfx
