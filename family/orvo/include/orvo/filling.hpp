/// Completing pictures: what a mask marks is painted anew from what surrounds it.
#pragma once

#include <orvo_common/export.hpp>
#include <orvo_common/run_control.hpp>
#include <orvo_core/image_data.hpp>

#include <filesystem>
#include <memory>

namespace orvo {

/// Completes pictures. Usable from any thread, by several at a time.
class ORVO_EXPORT Filler
{
public:
    virtual ~Filler();

    /// A copy of `picture`, in its colour profile, in which the hole is painted: the pixels where `mask` is at least a
    /// half. What is not a number counts as known. A mask of another size than the picture is laid over it, each side
    /// with its own scale, and taken at the nearest sample. Known pixels come back bit for bit; an empty hole gives a
    /// plain copy.
    ///
    /// Values are used as they are encoded, so a picture should have a curve that is even to the eye, such as sRGB's.
    /// `control` is called on the thread of the caller, between steps that take about a second for a hole of
    /// two megapixels. Throws FailureError: Cancelled; UnfittingPictures if picture or mask are empty or nothing of the
    /// picture is known. Throws std::bad_alloc. Blocks its caller; parallel inside.
    [[nodiscard]] virtual std::shared_ptr<_ImageData<PixelRGB<float>>> fill(const _ImageData<PixelRGB<float>>& picture,
                                                                            const _ImageData<float>& mask,
                                                                            const RunControl& control) const = 0;
};

/// Fills with patches of the picture itself, so without a network: an energy over patches is minimised from coarse to
/// fine (Wexler, Shechtman, Irani, PAMI 29(3), 2007; Newson, Almansa, Gousseau, Perez, IPOL 2017,
/// doi:10.5201/ipol.2017.189), matches being found as by Barnes et al. (SIGGRAPH 2009). Every pixel of the hole is a
/// copy of known pixels or a mean of a few, but for colours that are evened out where copies meet; no pixel of the hole
/// is ever a source. The same bytes for any number of threads. Where so little is known that no
/// patch of 7 x 7 pixels is, the hole is filled smoothly from its rim.
///
/// Peak: the result, and about 20 bytes for each pixel of the surroundings that are searched: the bounding box of the
/// hole, larger by its longer side all around.
[[nodiscard]] ORVO_EXPORT std::unique_ptr<Filler> patchFiller();

/// Fills by an inpainting network in a file of ONNX, run by OpenCV on the processor. Its inputs are a picture of
/// 1 x 3 x H x W (red, green, blue, 1.0 full scale) and a mask of 1 x 1 x H x W (1 in the hole), in either order; its
/// output is a picture of 1 x 3 x H x W, whose hole is used. It sees a square around the hole. A model is run like a
/// program and must be trusted like one. Throws FailureError, UnreadableFile, if the file cannot be used, and so does
/// fill() if the network fails; one filling at a time, others wait.
[[nodiscard]] ORVO_EXPORT std::unique_ptr<Filler> networkFiller(const std::filesystem::path& model);

} // namespace orvo
