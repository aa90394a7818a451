/// Restoration of a whole photograph: less noise, less blur, a little more local contrast, clearer faces.
#pragma once

#include <orvo_common/export.hpp>
#include <orvo_core/image_data.hpp>

#include <functional>
#include <memory>

namespace orvo {

/// How far each step goes: 0 leaves it out, 1 is full. Values beyond are limited, what is not a number counts as 0.
struct RestorationSettings
{
    float noise = 0.75f; ///< below 1 some of the grain stays, without which skin looks like plastic
    float blur = 0.8f;
    float contrast = 0.15f; ///< log2 of the gain of fine structure
    float faces = 0.6f;
};

/// How a caller follows and stops a restoration. Both may be empty. Called on the thread of the caller, about every
/// second for a picture of 7 megapixels, but while faces are worked on.
struct RestorationCallbacks
{
    std::function<void(double)> progress; ///< fraction that is done, 0..1, never falling
    std::function<bool()> cancel;         ///< true stops the restoration
};

/// A new picture of the same size and profile; `picture` is not changed. Steps, in their order:
///
/// Noise. Its power is measured in the quietest blocks of each brightness, cosine by cosine, in one luminance-like and
/// two opponent channels, and anew in copies of half and a quarter of the size, where the coarse grain of compressed
/// and demosaiced pictures shows (Lebrun, Colom, Morel, "Multiscale image blind denoising", IEEE TIP 24(10), 2015).
/// From the smallest copy up, blocks of 8 x 8 pixels at all even places are transformed to cosines, what is below the
/// noise is dropped, and the result guides a second pass that weighs each cosine by what it has over the noise: Yu and
/// Sapiro, "DCT image denoising", IPOL 2011, doi:10.5201/ipol.2011.ys-dct; over scales as by Pierazzo, Morel, Facciolo,
/// "Multi-scale DCT denoising", IPOL 2017, doi:10.5201/ipol.2017.201. Where no noise is found nothing changes.
///
/// Blur. One figure for the picture, from its sharpest edges (Zhuo and Sim 2011), is taken for a Gaussian of up to 2
/// pixels and undone by a deconvolution with a sparse prior (Krishnan and Fergus 2009) of luminance; the noise that is
/// left limits the strength. No sample leaves the range of its surroundings by more than 2 percent of full scale, so
/// that edges do not ring. A picture without measurable blur stays as it is.
///
/// Local contrast, by applyDetails(). Faces, by DeblurAIEffect::deblurFaces(), which measures what blur is left in
/// them.
///
/// `picture`: 1.0 full scale, any RGB profile; None() is taken for encoded values. Pixels that are not finite or far
/// out of range keep their bits and have no effect beyond 8 pixels around them in each scale.
///
/// Empty on cancel. Throws std::invalid_argument if `picture` is empty, std::bad_alloc. Blocks; parallel inside; the
/// same bits for any number of threads; callable from several threads at once. Peak: the result, four pictures of the
/// same size while noise is reduced, six float planes of a tile of 1.2 megapixels while blur is undone.
[[nodiscard]] ORVO_EXPORT std::shared_ptr<_ImageData<PixelRGB<float>>>
restorePicture(const _ImageData<PixelRGB<float>>& picture, const RestorationSettings& settings,
               const RestorationCallbacks& callbacks);

} // namespace orvo
