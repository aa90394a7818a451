/// The records of the files in a bracket or a focus series.
#pragma once

#include <orvo_core/image_data.hpp>
#include <orvo_core/image_metadata.hpp>

#include <filesystem>
#include <memory>

namespace orvo {

/// One file of a focus series. A plain value; copies share the pixels.
struct FocusStackerFrame
{
    std::filesystem::path path;                         ///< empty in frames that carry only pixels
    std::shared_ptr<_ImageData<PixelRGB<float>>> image; ///< empty: nothing was loaded
    std::shared_ptr<const ImageMetadata> metadata;
    std::shared_ptr<AdditionalRawMetadata> rawMetadata;
    bool developed = false;        ///< the raw frame has been developed
    bool isGhostReference = false; ///< chosen by the user
};

/// One file of an exposure bracket.
struct HDRFrame : FocusStackerFrame
{
    float ev = 0.0f;      ///< filled by fillEVsAndSort()
    float evExtra = 0.0f; ///< copied with the frame, not used here
};

/// Whether a frame's pixels still need raw development.
[[nodiscard]] inline bool hasRawMark(const FocusStackerFrame& frame) { return frame.metadata && frame.metadata->isRaw; }

/// Marks a frame as developed, and gives it its own copy of the metadata with the same mark.
inline void markDeveloped(FocusStackerFrame& frame)
{
    frame.developed = true;
    auto metadata = std::make_shared<ImageMetadata>(*frame.metadata);
    metadata->isDeveloped = true;
    frame.metadata = std::move(metadata);
}

} // namespace orvo
