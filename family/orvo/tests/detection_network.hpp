/// A detection network that finds red cells, written as ONNX, so that tests need no trained one.
#pragma once

#include <cmath>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace test {

/// Messages of protocol buffers, field by field.
class ProtoMessage
{
public:
    ProtoMessage& number(unsigned field, std::uint64_t value)
    {
        varint(field << 3u);
        varint(value);
        return *this;
    }
    ProtoMessage& text(unsigned field, const std::string& value)
    {
        varint((field << 3u) | 2u);
        varint(value.size());
        bytes += value;
        return *this;
    }
    ProtoMessage& message(unsigned field, const ProtoMessage& value) { return text(field, value.bytes); }

    std::string bytes;

private:
    void varint(std::uint64_t value)
    {
        for (; value >= 128; value >>= 7u)
            bytes += static_cast<char>((value & 127u) | 128u);
        bytes += static_cast<char>(value);
    }
};

/// Writes the ONNX of onnx.proto3: ModelProto, GraphProto, NodeProto, TensorProto.
class DetectionNetwork
{
public:
    /// For pictures of `width` x `height`, multiples of 32. A cell of 32 px that is pure red (blue and green 0) counts
    /// as a face: a square of `side` px around the cell's centre, eyes `side` / 4 px left and right of the centre.
    DetectionNetwork(int width, int height, double side)
    {
        for (const int stride : {8, 16, 32}) {
            const std::string s = std::to_string(stride);
            const float red = stride == 32 ? 1.0f : 0.0f; // only this stride ever fires
            convolution("cls_" + s, stride, {red / (255.0f * 32 * 32), {0.0f}}, false);
            convolution("obj_" + s, stride, {0.0f, {1.0f}}, false);
            const float size = static_cast<float>(std::log(side / stride));
            convolution("bbox_" + s, stride, {0.0f, {0.5f, 0.5f, size, size}}, true);
            const float eye = static_cast<float>(side / 4.0 / stride);
            std::vector<float> points(10, 0.5f);
            points[0] -= eye;
            points[2] += eye;
            convolution("kps_" + s, stride, {0.0f, points}, true);
        }
        graph.text(2, "faces").message(11, value("input", {1, 3, height, width}));
    }

    void write(const std::filesystem::path& file) const
    {
        const ProtoMessage opset = ProtoMessage().text(1, "").number(2, 11);
        std::ofstream(file, std::ios::binary) << ProtoMessage().number(1, 6).message(7, graph).message(8, opset).bytes;
    }

private:
    /// The output of each channel of a convolution: its bias, plus `red` times (red - green - blue) of each pixel.
    struct Channels
    {
        float red;
        std::vector<float> bias;
    };

    void convolution(const std::string& name, int stride, const Channels& channels, bool interleave)
    {
        const auto count = static_cast<int>(channels.bias.size());
        std::vector<float> weights;
        for (int c = 0; c < count; ++c)
            for (const float sign : {-1.0f, -1.0f, 1.0f}) // blue, green, red
                weights.insert(weights.end(), static_cast<std::size_t>(stride * stride), sign * channels.red);
        graph.message(5, tensor(name + "_w", {count, 3, stride, stride}, weights));
        graph.message(5, tensor(name + "_b", {count}, channels.bias));
        const std::string planar = interleave ? name + "_planar" : name;
        graph.message(1, ProtoMessage()
                             .text(1, "input")
                             .text(1, name + "_w")
                             .text(1, name + "_b")
                             .text(2, planar)
                             .text(3, planar)
                             .text(4, "Conv")
                             .message(5, integers("kernel_shape", {stride, stride}))
                             .message(5, integers("strides", {stride, stride})));
        if (interleave)
            graph.message(1, ProtoMessage()
                                 .text(1, planar)
                                 .text(2, name)
                                 .text(3, name)
                                 .text(4, "Transpose")
                                 .message(5, integers("perm", {0, 2, 3, 1})));
        graph.message(12, value(name, {}));
    }

    static ProtoMessage integers(const std::string& name, const std::vector<int>& values)
    {
        constexpr unsigned kInts = 7;
        ProtoMessage attribute;
        attribute.text(1, name);
        for (const int v : values)
            attribute.number(8, static_cast<std::uint64_t>(v));
        return attribute.number(20, kInts);
    }

    static ProtoMessage tensor(const std::string& name, const std::vector<int>& sides, const std::vector<float>& values)
    {
        constexpr unsigned kFloat = 1;
        ProtoMessage result;
        for (const int side : sides)
            result.number(1, static_cast<std::uint64_t>(side));
        std::string raw(values.size() * sizeof(float), '\0');
        std::memcpy(raw.data(), values.data(), raw.size());
        return result.number(2, kFloat).text(8, name).text(9, raw);
    }

    static ProtoMessage value(const std::string& name, const std::vector<int>& sides)
    {
        ProtoMessage shape;
        for (const int side : sides)
            shape.message(1, ProtoMessage().number(1, static_cast<std::uint64_t>(side)));
        const ProtoMessage type = ProtoMessage().number(1, 1).message(2, shape);
        return ProtoMessage().text(1, name).message(2, ProtoMessage().message(1, type));
    }

    ProtoMessage graph;
};

} // namespace test
