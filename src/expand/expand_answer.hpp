/// From an answer to the grown picture. On the queue's worker.
#pragma once

#include "GenProcessorBase/generative_processor_base_impl.hpp"

#include <memory>

namespace orvo {

/// The canvas of the request with the answer in it, as a new picture. `size` is that of the picture that was sent, (0,
/// 0) where it is not known. Throws std::runtime_error if there is no request that it could belong to. `generated` is
/// used up. Peak: as tieAnswer(), and upscaleToInitialSize().
[[nodiscard]] std::shared_ptr<_ImageData<PixelRGB<float>>>
expandedPicture(const GenerativeProcessorBaseImpl::RequestParameters& parameters,
                std::shared_ptr<_ImageData<PixelRGB<float>>> generated, _Size<int> size);

} // namespace orvo
