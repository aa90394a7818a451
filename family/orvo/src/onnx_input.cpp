#include "onnx_input.hpp"

#include <algorithm>
#include <stdexcept>

// Numbers of fields as onnx.proto gives them.
namespace orvo::details {
namespace {

using Bytes = std::span<const unsigned char>;

constexpr std::uint64_t kModelGraph = 7;
constexpr std::uint64_t kGraphInitializer = 5;
constexpr std::uint64_t kGraphInput = 11;
constexpr std::uint64_t kTensorName = 8;
constexpr std::uint64_t kValueName = 1;
constexpr std::uint64_t kValueType = 2;
constexpr std::uint64_t kTypeTensor = 1;
constexpr std::uint64_t kTensorElement = 1;
constexpr std::uint64_t kTensorShape = 2;
constexpr std::uint64_t kShapeSide = 1;
constexpr std::uint64_t kSideValue = 1;
constexpr std::uint64_t kFloat = 1;

// Kinds of fields.
constexpr std::uint64_t kVarint = 0;
constexpr std::uint64_t kEightBytes = 1;
constexpr std::uint64_t kLengthTold = 2;
constexpr std::uint64_t kFourBytes = 5;

class Malformed : public std::runtime_error
{
public:
    Malformed() : std::runtime_error("no protocol buffer") {}
};

struct Field
{
    std::uint64_t number = 0;
    std::uint64_t value = 0; // of a varint
    Bytes content;           // of a field whose length is told
    Bytes whole;             // as it stands in the message
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

// The content of the last field of that number, which is the one that counts; empty if there is none.
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

} // namespace

std::optional<OnnxInput> declaredInput(std::span<const unsigned char> model)
{
    try {
        const Bytes graph = fieldOf(model, kModelGraph);
        std::vector<std::string> weights;
        forEachField(graph, [&](const Field& field) {
            if (field.number == kGraphInitializer)
                weights.push_back(textOf(fieldOf(field.content, kTensorName)));
        });
        std::optional<OnnxInput> input;
        forEachField(graph, [&](const Field& field) {
            if (input || field.number != kGraphInput)
                return;
            const std::string name = textOf(fieldOf(field.content, kValueName));
            if (std::find(weights.begin(), weights.end(), name) == weights.end())
                input = OnnxInput{name, sidesOf(field.content)};
        });
        return input;
    } catch (const Malformed&) {
        return std::nullopt;
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

} // namespace orvo::details
