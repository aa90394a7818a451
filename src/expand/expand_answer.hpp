/// Makes the expanded picture from an answer. Used on the queue's worker.
#pragma once

#include "GenProcessorBase/generative_processor_base_impl.hpp"

#include <memory>

namespace orvo {

/// A new picture: the canvas of the request with the answer blended in. `size` is the size of the picture that was
/// sent, or (0, 0) if unknown. Consumes `generated`. Throws std::runtime_error if there was no request. Peak: as
/// tieAnswer(), and upscaleToInitialSize().
[[nodiscard]] std::shared_ptr<_ImageData<PixelRGB<float>>>
expandedPicture(const GenerativeProcessorBaseImpl::RequestParameters& parameters,
                std::shared_ptr<_ImageData<PixelRGB<float>>> generated, _Size<int> size);

} // namespace orvo
