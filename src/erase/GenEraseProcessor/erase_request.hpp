/// Makes a request from a painted mask and applies its answer. Used on the queue's worker.
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

/// A candidate for a request, with its encoded text. Immutable.
struct GenEraseData
{
    GenEraseData(std::shared_ptr<const _ImageData<PixelRGB<float>>> picture,
                 std::shared_ptr<const _ImageData<float>> itsMask, const Base64EncodeParameters& encoding);
    /// Picture and mask resized to `size` and encoded again.
    [[nodiscard]] std::shared_ptr<const GenEraseData> resized(_Size<int> size) const;

    const std::shared_ptr<const _ImageData<PixelRGB<float>>> image;
    const std::string imageBase64;
    const std::shared_ptr<const _ImageData<float>> mask;
    const std::string maskBase64;
    const Base64EncodeParameters parameters;
};

/// The limits of a request.
struct RequestLimits
{
    std::int32_t pixels;     ///< of picture and mask together
    std::int32_t base64Size; ///< characters of picture and mask together
    float aspect;
};

/// The bounding box of the nonzero samples; (0, 0, 0, 0) if there are none.
[[nodiscard]] _Rect<int> maskBounds(const TiledMaskImage& mask);

/// Makes the request for the area that `mask` covers and stores its geometry in `parameters`. An empty mask returns an
/// empty candidate and leaves `parameters` unchanged.
[[nodiscard]] std::shared_ptr<const GenEraseData>
prepareEraseRequest(const Image& image, const TiledMaskImage& mask, const RequestLimits& limits, const std::string& id,
                    GenerativeProcessorBaseImpl::RequestParameters& parameters);

/// A writable copy of the image's modified data with all tiles computed.
[[nodiscard]] std::shared_ptr<KepTiledImageData> obtainModifiedData(const std::shared_ptr<Image>& image);

/// Blends an answer into the image. `size` is the size of the picture that was sent, or (0, 0) if unknown. Throws
/// std::runtime_error if there was no request.
void applyEraseAnswer(const std::shared_ptr<Image>& image,
                      const GenerativeProcessorBaseImpl::RequestParameters& parameters,
                      const _ImageData<PixelRGB<float>>& generated, _Size<int> size);

} // namespace orvo
