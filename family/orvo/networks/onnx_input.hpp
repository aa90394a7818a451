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

/// The bytes of a model file. Throws FailureError (UnreadableFile) if there is none, or one of 0 bytes or above 1 GiB.
[[nodiscard]] std::vector<unsigned char> readOnnxFile(const std::filesystem::path& model);

/// The inputs of the graph that are not weights, in their order; none if the bytes are not such a file. Reads only
/// inside them.
[[nodiscard]] std::vector<OnnxInput> declaredInputs(std::span<const unsigned char> model);

/// The first of them; empty if there is none.
[[nodiscard]] std::optional<OnnxInput> declaredInput(std::span<const unsigned char> model);

/// Describes obvious damage of the graph; empty if there is none. OpenCV does not check for it and would read beyond
/// its tables: a layer's inputs come from an input, a weight or a layer before it; weights have as many bytes as their
/// sides require; a convolution has its kernel.
[[nodiscard]] std::string graphDamage(std::span<const unsigned char> model);

/// The same network with the input `name` declared as `sides` of floats. OpenCV fixes the shapes of all layers when it
/// reads a file, and refuses some layers (DepthToSpace is one) with free sides.
[[nodiscard]] std::vector<unsigned char> withInput(std::span<const unsigned char> model, const std::string& name,
                                                   const std::array<int, 4>& sides);

} // namespace orvo::details
