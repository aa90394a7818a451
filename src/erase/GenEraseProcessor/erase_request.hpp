/// From a painted mask to a request, and from an answer to the picture. On the queue's worker.
#pragma once

#include "GenProcessorBase/generative_processor_base_impl.hpp"

#include <orvo_extensions/generative_processor.hpp>
#include <orvo_image_processing/kep_tiled_image_data.hpp>
#include <orvo_image_processing/tiled_mask_image.hpp>
#include <orvo_io/base64_image.hpp>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

namespace orvo {

/// One candidate for a request. Immutable; it knows the exact length of its text.
struct GenEraseData
{
    GenEraseData(std::shared_ptr<const _ImageData<PixelRGB<float>>> picture,
                 std::shared_ptr<const _ImageData<float>> itsMask, const Base64EncodeParameters& encoding);
    /// Picture and mask brought to `size` and encoded anew.
    [[nodiscard]] std::shared_ptr<const GenEraseData> resized(_Size<int> size) const;

    const std::shared_ptr<const _ImageData<PixelRGB<float>>> image;
    const std::string imageBase64;
    const std::shared_ptr<const _ImageData<float>> mask;
    const std::string maskBase64;
    const Base64EncodeParameters parameters;
};

/// What a request may have at most.
struct RequestLimits
{
    std::int32_t pixels;     ///< of picture and mask together
    std::int32_t base64Size; ///< characters of picture and mask together
    float aspect;
};

/// The bounds of what is not 0; (0, 0, 0, 0) if nothing is.
[[nodiscard]] _Rect<int> maskBounds(const TiledMaskImage& mask);

/// The request for what `mask` covers, and in `parameters` what its answer needs; the candidate is empty, and nothing
/// is written, if the mask is.
[[nodiscard]] std::shared_ptr<const GenEraseData>
prepareEraseRequest(const Image& image, const TiledMaskImage& mask, const RequestLimits& limits, const std::string& id,
                    GenerativeProcessorBaseImpl::RequestParameters& parameters);

/// A copy of the modified data of the image, all tiles computed, which may be written to.
[[nodiscard]] std::shared_ptr<KepTiledImageData> obtainModifiedData(const std::shared_ptr<Image>& image);

/// Puts an answer into the image. `size` is that of the picture that was sent, (0, 0) where it is not known. Throws
/// std::runtime_error if there is no request that it could belong to.
void applyEraseAnswer(const std::shared_ptr<Image>& image,
                      const GenerativeProcessorBaseImpl::RequestParameters& parameters,
                      const _ImageData<PixelRGB<float>>& generated, _Size<int> size);

} // namespace orvo
