/// What registration compares of a frame.
#pragma once

#include <orvo_core/image_data.hpp>

#include <opencv2/core/mat.hpp>

#include <vector>

namespace orvo {

/// The structure of a frame at scales that halve from one to the next: luma without its local mean, relative to the
/// contrast of its surroundings. Blur, exposure and tone curve hardly change it, and noise in flat parts is small in
/// it.
struct FrameStructure
{
    std::vector<cv::Mat> levels; ///< CV_32F, the finest first
    int reduction = 1;           ///< pixels of the frame for each of the finest level, a power of 2
};

/// The finest level has at most 2 megapixels. Values outside 0..1 count as clipped. Peak: four planes of one channel of
/// the finest level, or the luma of the frame; the result is a third more than one of them.
[[nodiscard]] FrameStructure structureOf(const _ImageData<PixelRGB<float>>& picture);

/// Whether the finest level of a picture of this size has fewer pixels than the picture: the structure then takes less
/// memory than samples of 8 bits.
[[nodiscard]] bool isStructureReduced(_Size<int> size);

} // namespace orvo
