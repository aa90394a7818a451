/// Views of a processor's pictures, through its caches. Used on the queue's worker.
#pragma once

#include "GenProcessorBase/generative_processor_base_impl.hpp"

#include <orvo_extensions/generative_processor.hpp>
#include <orvo_logger/logstream.hpp>

#include <functional>
#include <memory>

namespace orvo {

/// The part `roi` of the current picture at `size`, for display in `profile`. A part that exceeds the picture is
/// clipped and logged as an error that names `location`.
[[nodiscard]] std::shared_ptr<const _ImageData<PixelRGB<float>>>
getDevelopedModifiedImageData(std::shared_ptr<ColorProfile> profile, const _Size<int>& size, const _Rect<int>& roi,
                              const std::shared_ptr<GenerativeProcessorBaseImpl::WorkingImage>& workingImage,
                              RenderCache& cache, SourceLocation location);

/// The same for the unedited picture, with the view and profile of `update`.
[[nodiscard]] std::shared_ptr<const _ImageData<PixelRGB<float>>>
getDevelopedOriginalImageData(const GenerativeProcessorBase::Update& update, const std::shared_ptr<Image>& image,
                              RenderCache& cache);

/// Delivers a render on `queue`, or on a new thread without one. Does nothing for an empty callback.
void enqueue(std::function<void(NoAlphaRender::Data)> callback, NoAlphaRender::Data data,
             const std::shared_ptr<opq::OperationQueue>& queue);

} // namespace orvo
