/// What is drawn over a render.
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

/// What a tool gives along with a render.
struct PostRenderDataI
{
    static constexpr std::int32_t kErase = 1; ///< shows a mask; any other type is delivered as it is

    std::int32_t type = 0;

    virtual ~PostRenderDataI();
    /// The mask that is to be seen over the view; empty: none. On the queue's worker.
    [[nodiscard]] virtual std::shared_ptr<const MaskImage> maskToShow(const PreviewContext& context,
                                                                      PostRenderType channel) const;
};

/// A copy of `picture` with the mask over it in red, at most half opaque; empty if there is no picture.
[[nodiscard]] std::shared_ptr<_ImageData<PixelRGB<float>>>
postRender(const std::shared_ptr<PostRenderDataI>& data, std::shared_ptr<const _ImageData<PixelRGB<float>>> picture,
           const PreviewContext& context, const PostRenderType& channel);

} // namespace orvo
