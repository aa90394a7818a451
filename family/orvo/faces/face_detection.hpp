/// Finds the faces of a picture.
#pragma once

#include <orvo/deblur_ai_effect.hpp>
#include <orvo_common/run_control.hpp>

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

/// The faces of `image`, all different, from top to bottom and left to right. Searches a grey copy of limited size, so
/// the cost does not grow with the picture. Empty if there are none, if no detector is installed (logs one line of
/// level Warning), and once `run` is cancelled.
[[nodiscard]] std::vector<Face> findFaces(const _ImageData<PixelRGB<float>>& image, bool profiles,
                                          const RunControl& run);

} // namespace orvo
