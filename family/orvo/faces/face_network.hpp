/// Finds faces with a network.
#pragma once

#include "faces/face_detection.hpp"

#include <opencv2/core.hpp>

#include <filesystem>
#include <vector>

namespace orvo {

/// The different faces that the network in the ONNX file `model` finds in `picture` (8 bits, blue first), in its
/// pixels. The network is one of the YuNet family (Wu, Peng, Yu, Machine Intelligence Research 20(5), 2023): from the
/// picture, 0..255, padded with black to multiples of 32, it computes for each of the strides S = 8, 16, 32 one row for
/// each cell of S x S px: cls_S and obj_S (1 value: whether there is a face), bbox_S (4: its centre from the cell's
/// corner and the logarithms of its sides, all in units of S) and kps_S (10: right eye, left eye, nose, corners of the
/// mouth, from the cell's corner). Throws std::exception that describes the mismatch.
[[nodiscard]] std::vector<Face> facesOfNetwork(const std::filesystem::path& model, const cv::Mat& picture);

} // namespace orvo
