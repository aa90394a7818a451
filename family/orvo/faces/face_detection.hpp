/// Where the faces of a picture are.
#pragma once

#include <orvo/deblur_ai_effect.hpp>

#include <atomic>
#include <memory>
#include <string>
#include <vector>

namespace orvo {

/// A disc in pixels of the picture.
struct FaceDisc
{
    double x = 0.0;
    double y = 0.0;
    double radius = 0.0;
};

/// A face: its box from brow to chin and ear to ear, in pixels of the picture, and the eyes found in it (two or none).
struct Face
{
    double x = 0.0;
    double y = 0.0;
    double width = 0.0;
    double height = 0.0;
    std::vector<FaceDisc> eyes;
};

/// The faces of `image`, no two of which are the same one, from top to bottom and left to right. Looked for in a grey
/// copy of bounded size, so the cost does not grow with the picture. Empty where there is none, where nothing to look
/// with is installed (one log line of level Warning tells so), and once `cancel` is set.
[[nodiscard]] std::vector<Face> findFaces(const _ImageData<PixelRGB<float>>& image, bool profiles,
                                          const std::atomic<bool>* cancel);

} // namespace orvo
