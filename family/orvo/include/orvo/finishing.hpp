/// The last touches on a merged picture, in place. Any thread; parallel; the same bits for any number of threads.
/// Values that are not finite take no part in a judgement and do not spread. Empty pictures stay as they are.
#pragma once

#include <orvo/raw_development.hpp>

namespace orvo {

/// Gently brings black and white points, at robust quantiles, near the ends of the scale, keeping hue. A blend that
/// does not reach the ends has been flattened inside as well: as far as it falls short of them its local contrast is
/// raised, by a local Laplacian filter, which leaves edges without halo, and a dark middle tone is lifted. Nothing is
/// driven into clipping in sRGB. A picture that reaches both ends changes by less than one percent; nights and fog stay
/// what they are. Encoded values, in place. Peak: a plane of a quarter of the pixels in floats, and what the filter
/// holds there.
ORVO_EXPORT void normalize_for_hdr(PixelRGB<float>* pixels, int width, int height);

/// Automatic white balance. `value` above 0..1: the share of the estimated cast that is removed, in linear light (the
/// curve of sRGB is assumed for a picture that is not linear); the luminance of grays stays. The cast is judged on a
/// version of at most 384 px, as the mean of shades of gray (Finlayson, Trezzi 2004), first-order gray edge (van de
/// Weijer, Gevers, Gijsenij 2007), both of norm 6, and then of the pixels that are near to gray under it. Where the
/// first two disagree, as with a large coloured area, less is removed. Limits: 2 EV between red and blue, 0.35 EV of
/// green. Clipped whites stay white. A cast below 0.005 EV leaves the picture bit for bit.
ORVO_EXPORT void applyWB(PicturePointer& image, float value);

/// Local contrast of fine structure on encoded luminance, by the local Laplacian filter. `value` above 0..1: log2 of
/// the gain of small differences. Differences above 0.2 are edges and get no halo; changes below about 0.005 would
/// raise noise and are held back. Hue stays, and no channel leaves 0..1 by it. Peak: one plane of 16 bits and the
/// filter's own two of floats.
ORVO_EXPORT void applyDetails(PixelRGB<float>* pixels, int width, int height, float value);

} // namespace orvo
