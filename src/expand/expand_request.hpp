/// From a crop to a request. On the queue's worker.
#pragma once

#include "GenProcessorBase/generative_processor_base_impl.hpp"

#include <orvo_core/crop_description.hpp>
#include <orvo_io/base64_image.hpp>

#include <cstdint>
#include <memory>
#include <string>

namespace orvo {

/// One candidate for a request. Immutable; it knows the exact length of its text.
struct GenExpandData
{
    GenExpandData(std::shared_ptr<const _ImageData<PixelRGB<float>>> picture, const Base64EncodeParameters& encoding);
    /// The picture brought to `size` and encoded anew.
    [[nodiscard]] std::shared_ptr<const GenExpandData> resized(_Size<int> size) const;

    const std::shared_ptr<const _ImageData<PixelRGB<float>>> image;
    const std::string imageBase64;
    const Base64EncodeParameters parameters;
};

/// What the known picture in a request may have at most.
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

/// What is sent, and in `parameters` what its answer needs. `crop` has pixels. `where` is the function that log lines
/// name. Peak: three canvases, and what shrinking them takes.
[[nodiscard]] ExpandRequest prepareExpandRequest(GenerativeProcessorBaseImpl::WorkingImage& workingImage,
                                                 const _Rect<int>& crop, const ExpandLimits& limits,
                                                 const std::string& id, const std::string& where,
                                                 GenerativeProcessorBaseImpl::RequestParameters& parameters);

} // namespace orvo
