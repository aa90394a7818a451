/// Restoration of a whole photograph: less noise, less blur, a little more local contrast, clearer faces.
#pragma once

#include <orvo_common/export.hpp>
#include <orvo_common/run_control.hpp>
#include <orvo_core/image_data.hpp>

#include <memory>

namespace orvo {

/// The strength of each step: 0 skips it, 1 is full strength. Values are clamped to this range; NaN counts as 0.
struct RestorationSettings
{
    float noise = 0.75f; ///< below 1 some grain stays, since skin without any looks like plastic
    float blur = 0.8f;
    float contrast = 0.15f; ///< log2 of the gain of fine structure
    float faces = 0.6f;
};

/// Returns a new picture of the same size and profile. Steps, in order:
///
/// Noise. Measures the noise power per DCT frequency in the quietest blocks of each brightness, in one luminance-like
/// and two opponent channels, at full, half and quarter size, since the coarse grain of compressed and demosaiced
/// pictures shows in the smaller ones (Lebrun, Colom, Morel, "Multiscale image blind denoising", IEEE TIP 24(10),
/// 2015). From the smallest copy up, transforms blocks of 8 x 8 pixels at all even positions and drops coefficients
/// below the noise; the result guides a second, Wiener-weighted pass: Yu and Sapiro, "DCT image denoising", IPOL 2011,
/// doi:10.5201/ipol.2011.ys-dct; over scales as in Pierazzo, Morel, Facciolo, "Multi-scale DCT denoising", IPOL 2017,
/// doi:10.5201/ipol.2017.201. A picture without noise stays unchanged.
///
/// Blur. Estimates one Gaussian blur of up to 2 pixels from the sharpest edges (Zhuo and Sim 2011) and reverses it in
/// luminance by deconvolution with a sparse prior (Krishnan and Fergus 2009); remaining noise limits the strength. No
/// sample exceeds the range of its surroundings by more than 2 percent of full scale, so edges do not ring. A picture
/// without measurable blur stays unchanged.
///
/// Local contrast, by applyDetails(). Faces, by DeblurAIEffect::deblurFaces(), which measures the blur left in them.
///
/// `picture`: 1.0 full scale, any RGB profile; None() counts as encoded values. Pixels that are not finite or far
/// out of range keep their bits and affect nothing beyond 8 pixels around them at each scale.
///
/// Calls `control` on the caller's thread, about every second for a picture of 7 megapixels. Progress never decreases,
/// and stays at 0.9 while faces are sharpened. Throws FailureError, Cancelled; std::invalid_argument if `picture` is
/// empty; std::bad_alloc. Blocks; parallel inside; the same bits for any number of threads; callable from several
/// threads at once. Peak: the result, four pictures of the same size while noise is reduced, one float plane of that
/// size and six of a tile of 1.2 megapixels while blur is undone.
[[nodiscard]] ORVO_EXPORT std::shared_ptr<_ImageData<PixelRGB<float>>>
restorePicture(const _ImageData<PixelRGB<float>>& picture, const RestorationSettings& settings,
               const RunControl& control);

} // namespace orvo
