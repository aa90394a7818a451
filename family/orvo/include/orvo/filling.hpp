/// Picture completion: paints the masked part of a picture from its surroundings.
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

    /// Returns a copy of `picture`, in its colour profile, with the hole painted: the pixels where `mask` is at least
    /// 0.5. NaN counts as known. A mask of another size is stretched over the picture, each side by its own scale, and
    /// sampled at the nearest pixel. Known pixels stay bit-exact; an empty hole gives a plain copy.
    ///
    /// Works on encoded values, so the picture should have a perceptually even curve such as sRGB's. Calls `control` on
    /// the caller's thread, between steps of about a second for a hole of two megapixels. Throws FailureError:
    /// Cancelled; UnfittingPictures if picture or mask is empty or the hole covers the whole picture. Throws
    /// std::bad_alloc. Blocks; parallel inside.
    [[nodiscard]] virtual std::shared_ptr<_ImageData<PixelRGB<float>>> fill(const _ImageData<PixelRGB<float>>& picture,
                                                                            const _ImageData<float>& mask,
                                                                            const RunControl& control) const = 0;
};

/// Fills with patches of the picture itself, without a network. Minimises an energy over patches from coarse to fine
/// (Wexler, Shechtman, Irani, PAMI 29(3), 2007; Newson, Almansa, Gousseau, Perez, IPOL 2017,
/// doi:10.5201/ipol.2017.189) and matches patches with PatchMatch (Barnes et al., SIGGRAPH 2009). Each pixel of the
/// hole is the mean of a few known pixels, with colour steps between neighbouring copies evened out; no pixel of the
/// hole is ever a source. Where the copies show nothing but a gentle change of colour (skies, calm water, walls), that
/// change is continued from around the hole instead. The same bytes for any number of threads. If the known part holds
/// no whole patch of 7 x 7 pixels, the hole is filled smoothly from its rim.
///
/// Peak: the result, and about 24 bytes per pixel of the search window: the bounding box of the hole, extended by its
/// longer side on all four sides.
[[nodiscard]] ORVO_EXPORT std::unique_ptr<Filler> patchFiller();

/// Fills with an inpainting network from an ONNX file, run by OpenCV on the CPU. Its inputs are a picture of
/// 1 x 3 x H x W (red, green, blue, 1.0 full scale) and a mask of 1 x 1 x H x W (1 in the hole), in either order; its
/// output is a picture of 1 x 3 x H x W. It sees a square around the hole, and only the hole of its output is used. A
/// model runs like a program, so use only trusted ones. Throws FailureError, UnreadableFile, if the file cannot be
/// used; fill() throws the same if the network fails. Runs one filling at a time; others wait.
[[nodiscard]] ORVO_EXPORT std::unique_ptr<Filler> networkFiller(const std::filesystem::path& model);

} // namespace orvo
