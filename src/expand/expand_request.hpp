/// Makes a request from a crop. Used on the queue's worker.
#pragma once

#include "GenProcessorBase/generative_processor_base_impl.hpp"

#include <orvo_core/crop_description.hpp>
#include <orvo_io/base64_image.hpp>

#include <cstdint>
#include <memory>
#include <string>

namespace orvo {

/// A candidate for a request, with its encoded text. Immutable.
struct GenExpandData
{
    GenExpandData(std::shared_ptr<const _ImageData<PixelRGB<float>>> picture, const Base64EncodeParameters& encoding);
    /// The picture resized to `size` and encoded again.
    [[nodiscard]] std::shared_ptr<const GenExpandData> resized(_Size<int> size) const;

    const std::shared_ptr<const _ImageData<PixelRGB<float>>> image;
    const std::string imageBase64;
    const Base64EncodeParameters parameters;
};

/// The limits of the known picture in a request.
struct ExpandLimits
{
    std::int32_t pixels;
    std::int32_t base64Size;
    float aspect;
};

struct ExpandRequest
{
    std::string image;
    std::string mask;
    int width = 0;
};

/// Makes the request for the nonempty `crop` and stores its geometry in `parameters`. Log lines name the function
/// `where`. Peak: three canvases, and the scratch for shrinking them.
[[nodiscard]] ExpandRequest prepareExpandRequest(GenerativeProcessorBaseImpl::WorkingImage& workingImage,
                                                 const _Rect<int>& crop, const ExpandLimits& limits,
                                                 const std::string& id, const std::string& where,
                                                 GenerativeProcessorBaseImpl::RequestParameters& parameters);

} // namespace orvo
