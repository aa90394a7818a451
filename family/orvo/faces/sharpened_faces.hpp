/// Sharpening of faces under a RunControl.
#pragma once

#include <orvo_common/run_control.hpp>
#include <orvo_core/image_data.hpp>

#include <memory>
#include <string>

namespace orvo::details {

/// DeblurAIEffect::deblurFaces(), with any source of cancel. Polls `control` on the caller's thread and reports no
/// progress. Empty on cancel.
[[nodiscard]] std::shared_ptr<_ImageData<PixelRGB<float>>>
sharpenedFaces(const std::string& id, const std::shared_ptr<const _ImageData<PixelRGB<float>>>& image, float amount,
               bool profiles, bool features, const RunControl& control);

} // namespace orvo::details
