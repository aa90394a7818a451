/// Sharpening of faces.
#pragma once

#include <orvo_common/export.hpp>
#include <orvo_core/image_data.hpp>
#include <orvo_extensions/document/effect.hpp>

#include <atomic>
#include <memory>
#include <string>

namespace orvo {

class RunControl;

/// Finds faces and removes their blur: from the lens, the focus, or the softness of enlarged pictures.
///
/// As an effect of a document it has three parameters: "amount", 0 to 1, default 1, and "profiles" and "features", each
/// on by default and off at 0; deblurFaces() explains them.
class ORVO_EXPORT DeblurAIEffect : public Effect
{
public:
    DeblurAIEffect();
    ~DeblurAIEffect() override;
    DeblurAIEffect(const DeblurAIEffect&);

    /// Runs deblurFaces() on the whole of `call.source` and writes to `call.result`, which it creates if it is empty:
    /// inside `call.rect` the source mixed with the sharpened picture by `call.blend.opacity`, outside the source.
    /// Returns false if the run was cancelled, if there is no source, or, after a log line of level Error, if the
    /// result differs in size from the source. Polls `call.cancelRun` all the time and `call.cancelEffect` before and
    /// after the work. Throws as deblurFaces() does.
    bool processImage(EffectCallContext& call) override;
    /// Drops the base's cached data; deblurFaces() caches nothing between runs.
    void clearCache() override;
    [[nodiscard]] std::shared_ptr<Effect> clone() const override;
    /// False at an amount of 0.
    [[nodiscard]] bool isNeedProcessing() const override;

    /// Returns a new picture, `image` with its faces sharpened; same size, same profile. `image` is not changed.
    ///
    /// Example:
    ///
    ///     const auto sharpened = DeblurAIEffect::deblurFaces("portrait", picture, 1.0f, true, true, nullptr);
    ///
    /// The search uses a grey copy of limited size, with cascades (Viola and Jones 2004) or a network; a find counts if
    /// two cascades share it or both eyes are found in it. In each face the blur is measured at the sharpest edges
    /// (Zhuo and Sim 2011), modelled as a Gaussian, and corrected by a deconvolution with a sparse prior (Krishnan and
    /// Fergus 2009) of luminance in encoded values; the three channels of a pixel get the same gain, so colours stay.
    /// The measured noise limits the strength; no value leaves the range of its surroundings by more than 2 percent
    /// of full scale. Changes fade out within an ellipse around the face: pixels outside keep their bits, and so do
    /// pixels that are not finite or far out of range (a luminance beyond -1..16), which do not affect others. A face
    /// without measurable blur hardly changes.
    ///
    /// `image`: 1.0 full scale, any RGB profile; None() means encoded values.
    /// `id` names the run in the log, which gets one line of level Diagnostic: faces found, blur and noise of each.
    /// `amount`: 0 (a plain copy, without a search) to 1 (full); clamped, NaN counts as 0.
    /// `profiles`: also search for faces seen from the side.
    /// `features`: sharpen eyes, brows and mouth fully, but smooth skin by half; false sharpens the whole face equally.
    /// `cancel`: null if the run cannot be cancelled. Polled before each detector, each face and each iteration; the
    /// result is then an empty pointer, and nothing is logged.
    ///
    /// Settings (orvosettings()): "Faces.cascades", text, the folder of the cascades, with or without the subfolders
    /// haarcascades and lbpcascades, default "/usr/share/opencv4". If cascades are missing, one line of level Warning
    /// names them, and there is no search for faces (or none for profiles). "Faces.model", text, an ONNX file of a
    /// detection network with the outputs of YuNet (Wu, Peng, Yu 2023; cls_8 to kps_32, any input size), replaces the
    /// cascades; if it cannot be read or run, one line of level Warning reports it and the cascades are used.
    ///
    /// Throws std::invalid_argument if `image` is empty, std::bad_alloc. Blocks; parallel inside; bit-identical for any
    /// number of threads; callable from several threads at once.
    /// Peak: the new picture, and for one face at a time six float planes of 1.4 x 1.7 times its box, of at most 4
    /// megapixels each: a larger face is processed in a smaller copy, and its change is enlarged (one more plane of
    /// that part at full size). During the search: a copy of at most 1280 px a side.
    [[nodiscard]] static std::shared_ptr<_ImageData<PixelRGB<float>>>
    deblurFaces(const std::string& id, const std::shared_ptr<const _ImageData<PixelRGB<float>>>& image, float amount,
                bool profiles, bool features, const std::atomic<bool>* cancel);
    /// The same, with any source of cancel, which is polled on the calling thread.
    [[nodiscard]] static std::shared_ptr<_ImageData<PixelRGB<float>>>
    deblurFaces(const std::string& id, const std::shared_ptr<const _ImageData<PixelRGB<float>>>& image, float amount,
                bool profiles, bool features, const RunControl& run);
    /// The same for a picture that the caller does not need any more: without a face it is the result, not copied.
    [[nodiscard]] static std::shared_ptr<_ImageData<PixelRGB<float>>>
    withDeblurredFaces(const std::string& id, std::shared_ptr<_ImageData<PixelRGB<float>>> image, float amount,
                       bool profiles, bool features, const RunControl& run);

protected:
    [[nodiscard]] const std::vector<std::string> amountParameters() const override;
};

} // namespace orvo
