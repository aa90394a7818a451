/// Overlays on renders.
#pragma once

#include <orvo_core/image_data.hpp>
#include <orvo_extensions/preview.hpp>

#include <cstdint>
#include <memory>

namespace orvo {

/// The channel of a render.
enum class PostRenderType : std::int32_t
{
    Main = 0,
    Underlay = 1,
};

/// A tool's data for the overlay of a render.
struct PostRenderDataI
{
    static constexpr std::int32_t kErase = 1; ///< shows a mask; any other type is delivered unchanged

    std::int32_t type = 0;

    virtual ~PostRenderDataI();
    /// The mask to show over the view; empty for none. Runs on the queue's worker.
    [[nodiscard]] virtual std::shared_ptr<const MaskImage> maskToShow(const PreviewContext& context,
                                                                      PostRenderType channel) const;
};

/// A copy of `picture` with the mask over it in red, at most half opaque; empty if there is no picture.
[[nodiscard]] std::shared_ptr<_ImageData<PixelRGB<float>>>
postRender(const std::shared_ptr<PostRenderDataI>& data, std::shared_ptr<const _ImageData<PixelRGB<float>>> picture,
           const PreviewContext& context, const PostRenderType& channel);

} // namespace orvo
