/// Final adjustments of a merged picture, in place. Any thread; parallel; bit-identical for any number of threads.
/// Measurements ignore non-finite values, which do not spread. Empty pictures stay empty.
#pragma once

#include <orvo/raw_development.hpp>

namespace orvo {

/// Gently moves the black and white points, at robust quantiles, near the ends of the scale, keeping hue. A blend that
/// does not reach the ends has lost contrast inside as well: in proportion to the missing range, a local Laplacian
/// filter raises its local contrast without halos, and a dark middle tone is lifted. Nothing is pushed into clipping in
/// sRGB. A picture that reaches both ends changes by less than one percent; night and fog keep their look. Encoded
/// values, in place. Peak: a float plane of a quarter of the pixels, and the filter's scratch for it.
ORVO_EXPORT void normalize_for_hdr(PixelRGB<float>* pixels, int width, int height);

/// Automatic white balance. `value` above 0..1: the share of the estimated cast to remove, in linear light (a picture
/// that is not linear is assumed to have the curve of sRGB); the luminance of grays stays. The cast is estimated on a
/// version of at most 384 px, as the mean of shades of gray (Finlayson, Trezzi 2004), first-order gray edge (van de
/// Weijer, Gevers, Gijsenij 2007), both of norm 6, and then of the pixels that are nearly gray under it. Where the
/// first two disagree, as with a large coloured area, less is removed. Limits: 2 EV between red and blue, 0.35 EV of
/// green. Clipped whites stay white. A cast below 0.005 EV leaves the picture bit-identical.
ORVO_EXPORT void applyWB(PicturePointer& image, float value);

/// Local contrast of fine structure on encoded luminance, with the local Laplacian filter. `value` above 0..1: log2 of
/// the gain of small differences. Differences above 0.2 are edges and get no halo; changes below about 0.005 would
/// raise noise and are suppressed. Hue stays, and no channel leaves 0..1 because of it. Peak: one plane of 16 bits and
/// the filter's own two float planes.
ORVO_EXPORT void applyDetails(PixelRGB<float>* pixels, int width, int height, float value);

} // namespace orvo
