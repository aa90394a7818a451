/// Writes small networks as ONNX files, with only the protocol buffer messages they need.
#pragma once

#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <utility>
#include <vector>

namespace test::onnx {

/// A message under construction.
class Message
{
public:
    Message& number(int field, std::uint64_t value)
    {
        varint(static_cast<std::uint64_t>(field) << 3);
        varint(value);
        return *this;
    }
    Message& text(int field, const std::string& value)
    {
        varint(static_cast<std::uint64_t>(field) << 3 | 2);
        varint(value.size());
        bytes += value;
        return *this;
    }
    Message& message(int field, const Message& value) { return text(field, value.bytes); }

    std::string bytes;

private:
    void varint(std::uint64_t value)
    {
        for (; value > 127; value >>= 7)
            bytes += static_cast<char>(value | 128);
        bytes += static_cast<char>(value);
    }
};

inline Message integer(const std::string& name, std::uint64_t value)
{
    return Message().text(1, name).number(3, value).number(20, 2);
}

inline Message integers(const std::string& name, const std::vector<std::uint64_t>& values)
{
    Message attribute = Message().text(1, name);
    for (const std::uint64_t value : values)
        attribute.number(8, value);
    return attribute.number(20, 7);
}

inline Message word(const std::string& name, const std::string& value)
{
    return Message().text(1, name).text(4, value).number(20, 3);
}

inline Message node(const std::string& operation, const std::vector<std::string>& inputs, const std::string& output,
                    const std::vector<Message>& attributes)
{
    Message result;
    for (const std::string& input : inputs)
        result.text(1, input);
    result.text(2, output).text(3, output + "_node").text(4, operation);
    for (const Message& attribute : attributes)
        result.message(5, attribute);
    return result;
}

inline Message tensor(const std::string& name, const std::vector<int>& sizes, const std::vector<float>& values)
{
    Message result;
    for (const int size : sizes)
        result.number(1, static_cast<std::uint64_t>(size));
    std::string raw(values.size() * sizeof(float), '\0');
    std::memcpy(raw.data(), values.data(), raw.size());
    return result.number(2, 1).text(8, name).text(9, raw);
}

/// Height and width of a stack of planes; 0 leaves them free.
struct Sides
{
    std::uint64_t height = 0;
    std::uint64_t width = 0;
};

inline Message values(const std::string& name, int channels, const Sides& sides)
{
    const auto side = [](std::uint64_t length, const char* variable) {
        return length == 0 ? Message().text(2, variable) : Message().number(1, length);
    };
    Message shape;
    shape.message(1, Message().number(1, 1)).message(1, Message().number(1, static_cast<std::uint64_t>(channels)));
    shape.message(1, side(sides.height, "h")).message(1, side(sides.width, "w"));
    return Message().text(1, name).message(2, Message().message(1, Message().number(1, 1).message(2, shape)));
}

/// A network from "in" to "out".
inline std::string model(const std::vector<Message>& nodes, const std::vector<Message>& weights, int channels,
                         const Sides& sides = {})
{
    Message graph;
    for (const Message& each : nodes)
        graph.message(1, each);
    graph.text(2, "test");
    for (const Message& each : weights)
        graph.message(5, each);
    graph.message(11, values("in", channels, sides)).message(12, values("out", channels, {}));
    return Message().number(1, 7).message(8, Message().text(1, "").number(2, 11)).message(7, graph).bytes;
}

inline std::string identity(int channels) { return model({node("Identity", {"in"}, "out", {})}, {}, channels); }

/// A convolution of every channel with `kernel` (side x side), repeated `scale` x `scale` times and interleaved:
/// nearest neighbour enlargement of the convolved picture.
inline std::string convolveAndEnlarge(int channels, const std::vector<float>& kernel, int side, int scale,
                                      const Sides& sides = {})
{
    const int copies = scale * scale;
    std::vector<float> weights;
    // DepthToSpace in the order DCR takes channel k of the picture from planes k, k + channels, and so on.
    for (int copy = 0; copy < copies; ++copy)
        for (int to = 0; to < channels; ++to)
            for (int from = 0; from < channels; ++from)
                for (const float value : kernel)
                    weights.push_back(to == from ? value : 0.0f);
    const auto pad = static_cast<std::uint64_t>(side / 2);
    const auto length = static_cast<std::uint64_t>(side);
    std::vector<Message> nodes = {
        node("Conv", {"in", "w"}, scale == 1 ? "out" : "planes",
             {integers("kernel_shape", {length, length}), integers("strides", {1, 1}),
              integers("pads", {pad, pad, pad, pad}), integers("dilations", {1, 1}), integer("group", 1)})};
    if (scale > 1)
        nodes.push_back(node("DepthToSpace", {"planes"}, "out",
                             {integer("blocksize", static_cast<std::uint64_t>(scale)), word("mode", "DCR")}));
    return model(nodes, {tensor("w", {copies * channels, channels, side, side}, weights)}, channels, sides);
}

/// A temporary file for each test program, removed at the end of the scope.
class ModelFile
{
public:
    explicit ModelFile(const std::string& bytes, const std::string& name = "model")
        : path(std::filesystem::temp_directory_path() / ("orvo_" + name + "_" + std::to_string(unique()) + ".onnx"))
    {
        std::ofstream(path, std::ios::binary) << bytes;
    }
    ~ModelFile()
    {
        std::error_code ignored;
        std::filesystem::remove(path, ignored);
    }
    ModelFile(const ModelFile&) = delete;
    ModelFile& operator=(const ModelFile&) = delete;

    const std::filesystem::path path;

private:
    static std::uint64_t unique()
    {
        static int next = 0;
        return static_cast<std::uint64_t>(reinterpret_cast<std::uintptr_t>(&next)) + static_cast<std::uint64_t>(++next);
    }
};

} // namespace test::onnx
