#include "networks/onnx_input.hpp"

#include <orvo_common/failure.hpp>

#include <algorithm>
#include <fstream>
#include <map>
#include <stdexcept>

// Field numbers from onnx.proto.
namespace orvo::details {
namespace {

using Bytes = std::span<const unsigned char>;

constexpr std::uintmax_t kMostModelBytes = std::uintmax_t{1} << 30; // twice the size of the largest published networks

constexpr std::uint64_t kModelGraph = 7;
constexpr std::uint64_t kGraphNode = 1;
constexpr std::uint64_t kGraphInitializer = 5;
constexpr std::uint64_t kGraphInput = 11;
constexpr std::uint64_t kNodeInput = 1;
constexpr std::uint64_t kNodeOutput = 2;
constexpr std::uint64_t kNodeOperation = 4;
constexpr std::uint64_t kNodeAttribute = 5;
constexpr std::uint64_t kAttributeName = 1;
constexpr std::uint64_t kAttributeInteger = 3;
constexpr std::uint64_t kAttributeTensor = 5;
constexpr std::uint64_t kAttributeIntegers = 8;
constexpr std::uint64_t kTensorSide = 1;
constexpr std::uint64_t kTensorType = 2;
constexpr std::uint64_t kTensorFloats = 4;
constexpr std::uint64_t kTensorName = 8;
constexpr std::uint64_t kTensorRaw = 9;
constexpr std::uint64_t kTensorPlace = 14;
constexpr std::uint64_t kValueName = 1;
constexpr std::uint64_t kValueType = 2;
constexpr std::uint64_t kTypeTensor = 1;
constexpr std::uint64_t kTensorElement = 1;
constexpr std::uint64_t kTensorShape = 2;
constexpr std::uint64_t kShapeSide = 1;
constexpr std::uint64_t kSideValue = 1;
constexpr std::uint64_t kFloat = 1;

constexpr std::uint64_t kMostWeights = std::uint64_t{1} << 30; // of one layer; no accepted file has more
constexpr std::uint64_t kMostCount = 4096;                     // samples of a kernel, a step or a block, and groups

// Kinds of fields.
constexpr std::uint64_t kVarint = 0;
constexpr std::uint64_t kEightBytes = 1;
constexpr std::uint64_t kLengthTold = 2;
constexpr std::uint64_t kFourBytes = 5;

class Malformed : public std::runtime_error
{
public:
    Malformed() : std::runtime_error("not a protocol buffer") {}
};

struct Field
{
    std::uint64_t number = 0;
    std::uint64_t value = 0; // of a varint
    Bytes content;           // of a length-delimited field
    Bytes whole;             // the encoded field
};

Bytes takeFront(Bytes& bytes, std::uint64_t count)
{
    if (count > bytes.size())
        throw Malformed();
    const Bytes front = bytes.first(static_cast<std::size_t>(count));
    bytes = bytes.subspan(static_cast<std::size_t>(count));
    return front;
}

std::uint64_t takeVarint(Bytes& bytes)
{
    std::uint64_t value = 0;
    for (int shift = 0; shift < 64; shift += 7) {
        const unsigned char byte = takeFront(bytes, 1)[0];
        value |= static_cast<std::uint64_t>(byte & 127) << shift;
        if (byte < 128)
            return value;
    }
    throw Malformed();
}

template <typename Visit>
void forEachField(Bytes message, const Visit& visit)
{
    while (!message.empty()) {
        const Bytes before = message;
        const std::uint64_t tag = takeVarint(message);
        Field field;
        field.number = tag >> 3;
        switch (tag & 7) {
        case kVarint:
            field.value = takeVarint(message);
            break;
        case kEightBytes:
            (void)takeFront(message, 8);
            break;
        case kLengthTold:
            field.content = takeFront(message, takeVarint(message));
            break;
        case kFourBytes:
            (void)takeFront(message, 4);
            break;
        default:
            throw Malformed();
        }
        field.whole = before.first(before.size() - message.size());
        visit(field);
    }
}

// The content of the last field with that number, which wins; empty if there is none.
Bytes fieldOf(Bytes message, std::uint64_t number)
{
    Bytes found;
    forEachField(message, [&](const Field& field) {
        if (field.number == number)
            found = field.content;
    });
    return found;
}

std::string textOf(Bytes bytes) { return {reinterpret_cast<const char*>(bytes.data()), bytes.size()}; }

std::vector<std::int64_t> sidesOf(Bytes value)
{
    std::vector<std::int64_t> sides;
    const Bytes shape = fieldOf(fieldOf(fieldOf(value, kValueType), kTypeTensor), kTensorShape);
    forEachField(shape, [&](const Field& side) {
        if (side.number != kShapeSide)
            return;
        sides.push_back(0);
        forEachField(side.content, [&](const Field& field) {
            if (field.number == kSideValue)
                sides.back() = std::max<std::int64_t>(0, static_cast<std::int64_t>(field.value));
        });
    });
    return sides;
}

using Buffer = std::vector<unsigned char>;

void putVarint(Buffer& out, std::uint64_t value)
{
    for (; value > 127; value >>= 7)
        out.push_back(static_cast<unsigned char>(value | 128));
    out.push_back(static_cast<unsigned char>(value));
}

void putNumber(Buffer& out, std::uint64_t number, std::uint64_t value)
{
    putVarint(out, number << 3 | kVarint);
    putVarint(out, value);
}

void putBytes(Buffer& out, std::uint64_t number, Bytes content)
{
    putVarint(out, number << 3 | kLengthTold);
    putVarint(out, content.size());
    out.insert(out.end(), content.begin(), content.end());
}

Buffer declaration(const std::string& name, const std::array<int, 4>& sides)
{
    Buffer shape;
    for (const int side : sides) {
        Buffer one;
        putNumber(one, kSideValue, static_cast<std::uint64_t>(side));
        putBytes(shape, kShapeSide, one);
    }
    Buffer tensor;
    putNumber(tensor, kTensorElement, kFloat);
    putBytes(tensor, kTensorShape, shape);
    Buffer type;
    putBytes(type, kTypeTensor, tensor);
    Buffer value;
    putBytes(value, kValueName, {reinterpret_cast<const unsigned char*>(name.data()), name.size()});
    putBytes(value, kValueType, type);
    return value;
}

// Integers of a repeated field, packed or not.
void appendIntegers(const Field& field, std::vector<std::uint64_t>& values)
{
    if (field.content.empty()) {
        values.push_back(field.value);
        return;
    }
    for (Bytes rest = field.content; !rest.empty();)
        values.push_back(takeVarint(rest));
}

struct Weight
{
    std::string name;
    std::vector<std::uint64_t> sides;
    std::string damage;
};

Weight readWeight(Bytes tensor)
{
    Weight weight;
    std::uint64_t type = 0;
    std::uint64_t place = 0;
    std::optional<std::uint64_t> raw;
    std::uint64_t floats = 0;
    forEachField(tensor, [&](const Field& field) {
        if (field.number == kTensorSide)
            appendIntegers(field, weight.sides);
        else if (field.number == kTensorType)
            type = field.value;
        else if (field.number == kTensorFloats)
            floats += field.content.empty() ? 1 : field.content.size() / sizeof(float);
        else if (field.number == kTensorName)
            weight.name = textOf(field.content);
        else if (field.number == kTensorRaw)
            raw = field.content.size();
        else if (field.number == kTensorPlace)
            place = field.value;
    });
    std::uint64_t count = 1;
    for (const std::uint64_t side : weight.sides) {
        if (side > kMostWeights || count * side > kMostWeights) {
            weight.damage = "weights " + weight.name + " have impossible sides";
            return weight;
        }
        count *= side;
    }
    if (place != 0)
        weight.damage = "weights (" + weight.name + ") are in a separate file";
    else if (type == kFloat && (raw ? *raw / sizeof(float) : floats) != count)
        weight.damage = "weights " + weight.name + " have " + std::to_string(raw ? *raw / sizeof(float) : floats) +
                        " numbers instead of " + std::to_string(count);
    else if (raw && *raw < count)
        weight.damage = "weights " + weight.name + " have missing bytes";
    return weight;
}

struct Layer
{
    std::string operation;
    std::vector<std::string> inputs;
    std::vector<std::string> outputs;
    std::string damage;
};

// Lengths, steps, groups and block sizes: OpenCV divides by them and uses them as allocation sizes.
void checkAttribute(Bytes attribute, Layer& layer)
{
    std::string name;
    std::vector<std::uint64_t> values;
    forEachField(attribute, [&](const Field& field) {
        if (field.number == kAttributeName)
            name = textOf(field.content);
        else if (field.number == kAttributeInteger || field.number == kAttributeIntegers)
            appendIntegers(field, values);
        else if (field.number == kAttributeTensor && layer.damage.empty())
            layer.damage = readWeight(field.content).damage;
    });
    const bool counts =
        name == "kernel_shape" || name == "strides" || name == "dilations" || name == "group" || name == "blocksize";
    const bool sound = std::all_of(values.begin(), values.end(),
                                   [](std::uint64_t value) { return value >= 1 && value <= kMostCount; });
    const bool pads = name == "pads";
    const bool small =
        std::all_of(values.begin(), values.end(), [](std::uint64_t value) { return value <= kMostCount; });
    if ((counts && (!sound || values.empty())) || (pads && layer.operation != "Pad" && !small))
        layer.damage = "a layer " + layer.operation + " has an impossible " + name;
}

Layer readLayer(Bytes node)
{
    Layer layer;
    layer.operation = textOf(fieldOf(node, kNodeOperation));
    forEachField(node, [&](const Field& field) {
        if (field.number == kNodeInput)
            layer.inputs.push_back(textOf(field.content));
        else if (field.number == kNodeOutput)
            layer.outputs.push_back(textOf(field.content));
        else if (field.number == kNodeAttribute)
            checkAttribute(field.content, layer);
    });
    return layer;
}

// Names that layers may use as inputs, with the sides of those that are weights.
using Known = std::map<std::string, std::vector<std::uint64_t>>;

std::string layerDamage(const Layer& layer, const Known& known)
{
    if (!layer.damage.empty())
        return layer.damage;
    if (layer.outputs.empty() || (layer.inputs.empty() && layer.operation != "Constant"))
        return "a layer " + layer.operation + " has no inputs or outputs";
    for (const std::string& input : layer.inputs)
        if (!input.empty() && !known.contains(input))
            return "a layer " + layer.operation + " has the input " + input + ", which nothing produces";
    if (layer.operation == "Conv" || layer.operation == "ConvTranspose") {
        const bool kernel = layer.inputs.size() >= 2 && known.contains(layer.inputs[1]);
        // Layers may compute the kernel; its sides are then unknown here.
        if (!kernel || (!known.at(layer.inputs[1]).empty() && known.at(layer.inputs[1]).size() != 4))
            return "a layer " + layer.operation + " has no kernel of 4 sides";
    }
    return {};
}

} // namespace

std::vector<OnnxInput> declaredInputs(std::span<const unsigned char> model)
{
    try {
        const Bytes graph = fieldOf(model, kModelGraph);
        std::vector<std::string> weights;
        forEachField(graph, [&](const Field& field) {
            if (field.number == kGraphInitializer)
                weights.push_back(textOf(fieldOf(field.content, kTensorName)));
        });
        std::vector<OnnxInput> inputs;
        forEachField(graph, [&](const Field& field) {
            if (field.number != kGraphInput)
                return;
            const std::string name = textOf(fieldOf(field.content, kValueName));
            if (std::find(weights.begin(), weights.end(), name) == weights.end())
                inputs.push_back({name, sidesOf(field.content)});
        });
        return inputs;
    } catch (const Malformed&) {
        return {};
    }
}

std::optional<OnnxInput> declaredInput(std::span<const unsigned char> model)
{
    const std::vector<OnnxInput> inputs = declaredInputs(model);
    return inputs.empty() ? std::nullopt : std::optional(inputs.front());
}

std::string graphDamage(std::span<const unsigned char> model)
{
    try {
        const Bytes graph = fieldOf(model, kModelGraph);
        Known known;
        std::string damage;
        const auto note = [&damage](const std::string& text) {
            if (damage.empty())
                damage = text;
        };
        forEachField(graph, [&](const Field& field) {
            if (field.number == kGraphInput)
                known.try_emplace(textOf(fieldOf(field.content, kValueName)));
            if (field.number != kGraphInitializer)
                return;
            const Weight weight = readWeight(field.content);
            note(weight.damage);
            known[weight.name] = weight.sides;
        });
        forEachField(graph, [&](const Field& field) {
            if (field.number != kGraphNode)
                return;
            const Layer layer = readLayer(field.content);
            note(layerDamage(layer, known));
            for (const std::string& output : layer.outputs)
                known.try_emplace(output);
        });
        return damage;
    } catch (const Malformed&) {
        return "it is malformed";
    }
}

std::vector<unsigned char> withInput(std::span<const unsigned char> model, const std::string& name,
                                     const std::array<int, 4>& sides)
{
    Buffer graph;
    forEachField(fieldOf(model, kModelGraph), [&](const Field& field) {
        if (field.number == kGraphInput && textOf(fieldOf(field.content, kValueName)) == name)
            putBytes(graph, kGraphInput, declaration(name, sides));
        else
            graph.insert(graph.end(), field.whole.begin(), field.whole.end());
    });
    Buffer result;
    forEachField(model, [&](const Field& field) {
        if (field.number != kModelGraph)
            result.insert(result.end(), field.whole.begin(), field.whole.end());
    });
    putBytes(result, kModelGraph, graph);
    return result;
}

std::vector<unsigned char> readOnnxFile(const std::filesystem::path& model)
{
    const auto fail = [&](const std::string& found) {
        throw FailureError({FailureKind::UnreadableFile, model, "expected an ONNX file, " + found});
    };
    std::error_code error;
    if (!std::filesystem::is_regular_file(model, error))
        fail("no such file");
    const std::uintmax_t size = std::filesystem::file_size(model, error);
    if (error || size == 0 || size > kMostModelBytes)
        fail("found " + std::to_string(error ? 0 : size) + " bytes");
    std::vector<unsigned char> bytes(static_cast<std::size_t>(size));
    std::ifstream file(model, std::ios::binary);
    if (!file.read(reinterpret_cast<char*>(bytes.data()), static_cast<std::streamsize>(bytes.size())))
        fail("it cannot be read");
    return bytes;
}

} // namespace orvo::details
