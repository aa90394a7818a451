/// Reads and changes the declarations of an ONNX file without a protocol buffer library.
#pragma once

#include <array>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace orvo::details {

/// The input of a network.
struct OnnxInput
{
    std::string name;
    std::vector<std::int64_t> sides; ///< 0 where the file leaves a side free
};

/// Reads a model file. Throws FailureError (UnreadableFile) if it is missing, empty or above 1 GiB.
[[nodiscard]] std::vector<unsigned char> readOnnxFile(const std::filesystem::path& model);

/// The inputs of the graph that are not weights, in order; none if the bytes are not an ONNX file. Never reads out of
/// bounds.
[[nodiscard]] std::vector<OnnxInput> declaredInputs(std::span<const unsigned char> model);

/// The first of these inputs; empty if there is none.
[[nodiscard]] std::optional<OnnxInput> declaredInput(std::span<const unsigned char> model);

/// Describes obvious damage of the graph; empty if there is none. OpenCV does not check these and would read out of
/// bounds: a layer's inputs are graph inputs, weights or outputs of earlier layers; weights have as many bytes as their
/// sides require; a convolution has its kernel.
[[nodiscard]] std::string graphDamage(std::span<const unsigned char> model);

/// The same network with the input `name` declared as `sides` of floats. OpenCV fixes the shapes of all layers when it
/// reads a file, and rejects some layers (such as DepthToSpace) with free sides.
[[nodiscard]] std::vector<unsigned char> withInput(std::span<const unsigned char> model, const std::string& name,
                                                   const std::array<int, 4>& sides);

} // namespace orvo::details
