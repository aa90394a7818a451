/// What a file of ONNX declares, read and changed without a library of its protocol buffers.
#pragma once

#include <array>
#include <cstdint>
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

/// The first input of the graph that is no weight; empty if the bytes are no such file. Reads nothing outside of them.
[[nodiscard]] std::optional<OnnxInput> declaredInput(std::span<const unsigned char> model);

/// What is plainly damaged in the graph, as a text; empty if nothing is. OpenCV takes these for granted and would read
/// beyond its tables: a layer takes what an input, a weight or a layer before it gives; weights have as many bytes as
/// their sides tell; a convolution has its kernel.
[[nodiscard]] std::string graphDamage(std::span<const unsigned char> model);

/// The same network with the input `name` declared as `sides` of floats. OpenCV settles the shapes of all layers when
/// it reads a file, and refuses some layers (DepthToSpace is one) where sides are free.
[[nodiscard]] std::vector<unsigned char> withInput(std::span<const unsigned char> model, const std::string& name,
                                                   const std::array<int, 4>& sides);

} // namespace orvo::details
