/// Sharpening of faces.
#pragma once

#include <orvo_common/export.hpp>
#include <orvo_core/image_data.hpp>

#include <atomic>
#include <memory>
#include <string>

namespace orvo {

/// Finds faces and takes the blur from them: lens, focus, and the softness of enlarged pictures.
class ORVO_EXPORT DeblurAIEffect
{
public:
    /// A new picture, `image` with its faces sharpened; same size, same profile. `image` is not changed.
    ///
    /// Faces are looked for in a grey copy of bounded size, by cascades (Viola and Jones 2004) or a network; a find
    /// counts if two cascades share it or both eyes are found in it. In each face the blur is measured at its sharpest
    /// edges (Zhuo and Sim 2011), taken for a Gaussian, and undone by a deconvolution with a sparse prior (Krishnan and
    /// Fergus 2009) of luminance in encoded values; the three channels of a pixel get the same gain, so colours stay.
    /// Noise is measured and limits the strength; no value leaves the range of its surroundings by more than 2 percent
    /// of full scale. Changes fade out within an ellipse around the face: what lies outside keeps its bits, and so do
    /// pixels that are not finite or far out of range (a luminance beyond -1..16), which have no effect on others. A
    /// face without measurable blur hardly changes.
    ///
    /// `image`: 1.0 full scale, any RGB profile; None() is taken for encoded values.
    /// `id` names the run in the log, which gets one line of level Diagnostic: faces found, blur and noise of each.
    /// `amount`: 0 (a plain copy; nothing is looked for) to 1 (full); beyond is limited, not a number is 0.
    /// `profiles`: look for faces seen from the side too.
    /// `features`: bring out eyes, brows and mouth in full, but smooth skin by half; false sharpens all of the face
    /// alike.
    /// `cancel`: null if the run cannot be cancelled. Looked at before each detector, each face and each iteration; the
    /// result is then an empty pointer, and nothing is logged.
    ///
    /// Settings (orvosettings()): "Faces.cascades", text, the folder of the cascades, with or without the folders
    /// haarcascades and lbpcascades in it, "/usr/share/opencv4" if not set. If cascades are missing, one line of level
    /// Warning tells which, and no faces (or none in profile) are looked for. "Faces.model", text, an ONNX file of a
    /// detection network with the outputs of YuNet (Wu, Peng, Yu 2023; cls_8 to kps_32, any input size), is used in
    /// place of the cascades; if it cannot be read or run, one line of level Warning tells so and the cascades are
    /// used.
    ///
    /// Throws std::invalid_argument if `image` is empty, std::bad_alloc. Blocks; parallel inside; the same bits for any
    /// number of threads; callable from several threads at once.
    /// Peak: the new picture, and for one face at a time six float planes of 1.4 x 1.7 times its box, of at most 4
    /// megapixels each: a face larger than that is worked on in a smaller copy, its change enlarged (one more plane of
    /// that part at full size). While faces are looked for: a copy of at most 1280 px a side.
    [[nodiscard]] static std::shared_ptr<_ImageData<PixelRGB<float>>>
    deblurFaces(const std::string& id, const std::shared_ptr<const _ImageData<PixelRGB<float>>>& image, float amount,
                bool profiles, bool features, const std::atomic<bool>* cancel);
};

} // namespace orvo
