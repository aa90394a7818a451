#include "filling/network_filler.hpp"

#include "filling/hole.hpp"
#include "filling/smooth_fill.hpp"
#include "networks/network_refusal.hpp"
#include "networks/onnx_input.hpp"
#include "networks/quiet_opencv.hpp"

#include <orvo_core/parallel.hpp>

#include <opencv2/dnn.hpp>

#include <algorithm>
#include <cmath>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace orvo {

std::unique_ptr<Filler> networkFiller(const std::filesystem::path& model)
{
    return details::keepingFailure([&] { return std::make_unique<details::NetworkFiller>(model); });
}

namespace details {
namespace {

constexpr int kUsualSide = 512; // input side of networks without a fixed one: most were trained at it
constexpr int kMostSide = 4096; // larger declared sides would need more memory than machines have
// Side of the input square in multiples of the hole's, so that the network sees the surroundings of the hole.
constexpr int kSurroundings = 2;
// A network whose output for a middle gray exceeds this uses 255 as full scale.
constexpr float kBeyondOne = 4.0f;

std::string text(const std::vector<std::int64_t>& sides)
{
    std::string all;
    for (const std::int64_t side : sides)
        all += (all.empty() ? "" : " x ") + (side == 0 ? "any" : std::to_string(side));
    return all.empty() ? "none" : all;
}

} // namespace

struct NetworkFiller::State
{
    std::filesystem::path file;
    std::string pictureInput;
    std::string maskInput;
    int width = kUsualSide;
    int height = kUsualSide;
    float fullScale = 1.0f;
    std::mutex running; // a network keeps its intermediate results
    cv::dnn::Net net;

    [[noreturn]] void fail(const std::string& sentence) const
    {
        throw FailureError({FailureKind::UnreadableFile, file, sentence});
    }

    [[nodiscard]] cv::Mat blob(int channels, double value) const
    {
        const int sizes[] = {1, channels, height, width};
        return cv::Mat(4, sizes, CV_32F, cv::Scalar(value));
    }

    void setSide(int& side, std::int64_t declared) const
    {
        if (declared > kMostSide)
            fail("expected inputs with sides of at most " + std::to_string(kMostSide) + ", found " +
                 std::to_string(declared));
        if (declared > 0)
            side = static_cast<int>(declared);
    }

    void readInputs(const std::vector<OnnxInput>& inputs)
    {
        const auto isA = [](const OnnxInput& input, std::int64_t channels) {
            return input.sides.size() == 4 && input.sides[0] <= 1 &&
                   (input.sides[1] == channels || input.sides[1] == 0);
        };
        const bool two = inputs.size() == 2;
        const bool straight = two && isA(inputs[0], 3) && isA(inputs[1], 1);
        const bool crossed = two && !straight && isA(inputs[1], 3) && isA(inputs[0], 1);
        if (!straight && !crossed) {
            std::string found;
            for (const OnnxInput& input : inputs)
                found += (found.empty() ? "" : " and ") + text(input.sides);
            fail("expected a picture of 1 x 3 x H x W and a mask of 1 x 1 x H x W as inputs, found " +
                 (found.empty() ? "none" : found));
        }
        pictureInput = inputs[straight ? 0 : 1].name;
        maskInput = inputs[straight ? 1 : 0].name;
        for (const OnnxInput& input : inputs) {
            setSide(height, input.sides[2]);
            setSide(width, input.sides[3]);
        }
    }

    cv::Mat forward(const cv::Mat& picture, const cv::Mat& mask)
    {
        net.setInput(picture, pictureInput);
        net.setInput(mask, maskInput);
        cv::Mat output = net.forward();
        if (output.dims != 4 || output.type() != CV_32F || output.size[0] != 1 || output.size[1] != 3 ||
            output.size[2] != height || output.size[3] != width) {
            std::vector<std::int64_t> sides;
            for (int i = 0; i < output.dims; ++i)
                sides.push_back(output.size[i]);
            fail("expected an output of 1 x 3 x " + std::to_string(height) + " x " + std::to_string(width) +
                 ", found " + text(sides));
        }
        return output;
    }

    void load(const std::filesystem::path& model)
    {
        const std::vector<uchar> bytes = readOnnxFile(model);
        const std::vector<OnnxInput> inputs = declaredInputs(bytes);
        if (inputs.empty())
            fail("expected an ONNX file, found one without a graph that has inputs");
        const std::string damage = graphDamage(bytes);
        if (!damage.empty())
            fail("expected an undamaged ONNX file, " + damage);
        readInputs(inputs);
        try {
            const QuietOpenCv quiet; // its messages come with the exception
            net = cv::dnn::readNetFromONNX(
                withInput(withInput(bytes, pictureInput, {1, 3, height, width}), maskInput, {1, 1, height, width}));
            net.setPreferableBackend(cv::dnn::DNN_BACKEND_OPENCV);
            net.setPreferableTarget(cv::dnn::DNN_TARGET_CPU);
            const cv::Mat output = forward(blob(3, 0.5), blob(1, 0.0));
            fullScale = cv::mean(output.reshape(1, 1))[0] > kBeyondOne ? 255.0f : 1.0f;
        } catch (const cv::Exception& error) {
            fail("expected a network that fills pictures, found " + refusalOf(error));
        }
    }
};

NetworkFiller::NetworkFiller(const std::filesystem::path& model) : state(std::make_unique<State>())
{
    state->file = model;
    state->load(model);
}

NetworkFiller::~NetworkFiller() = default;

namespace {

// The square of the picture shown to the network; it may reach beyond the picture.
_Rect<int> squareAround(const Hole& hole, int width, int height)
{
    const _Rect<int>& box = hole.bounds();
    const int most = std::max(hole.size().width, hole.size().height); // a larger square would show nothing more
    const int side = std::max(std::min(kSurroundings * std::max(box.width, box.height), most), std::min(width, height));
    // Inside the picture if it fits, since the outside adds no information.
    const auto place = [&](int begin, int length, int whole) {
        const int centred = begin + length / 2 - side / 2;
        return whole > side ? std::clamp(centred, 0, whole - side) : (whole - side) / 2;
    };
    return {place(box.x, box.width, hole.size().width), place(box.y, box.height, hole.size().height), side, side};
}

void putInto(cv::Mat& blob, const _ImageData<PixelRGB<float>>& picture, const cv::Mat& mask)
{
    for (int y = 0; y < picture.height(); ++y)
        for (int x = 0; x < picture.width(); ++x) {
            const bool inside = mask.ptr<float>(0, 0, y)[x] != 0.0f;
            const PixelRGB<float> p = inside ? PixelRGB<float>{} : clampValue(picture.row(y)[x]);
            blob.ptr<float>(0, 0, y)[x] = p.r;
            blob.ptr<float>(0, 1, y)[x] = p.g;
            blob.ptr<float>(0, 2, y)[x] = p.b;
        }
}

} // namespace

std::shared_ptr<_ImageData<PixelRGB<float>>> NetworkFiller::fill(const _ImageData<PixelRGB<float>>& picture,
                                                                 const _ImageData<float>& mask,
                                                                 const RunControl& control) const
{
    return keepingFailure([&] { return filled(picture, mask, control); });
}

NetworkFiller::Result NetworkFiller::filled(const _ImageData<PixelRGB<float>>& picture, const _ImageData<float>& mask,
                                            const RunControl& control) const
{
    const Hole hole(picture.size(), mask);
    auto result = picture.copy({});
    if (hole.empty())
        return result;
    control.throwIfCancelled();
    const _Rect<int> square = squareAround(hole, state->width, state->height);
    fillSmoothly(*result, hole); // the hole mixes with its surroundings when reduced, so its old content must go
    const _Size<int> seen{state->width, state->height};
    _ImageData<float> marks(hole.size(), nullptr);
    forEachRow(hole.size().height, [&](int y) { std::copy_n(hole.row(y), hole.size().width, marks.row(y)); });
    const auto reducedMarks = marks.resize(seen, square, true);
    cv::Mat maskBlob = state->blob(1, 0.0);
    for (int y = 0; y < seen.height; ++y)
        for (int x = 0; x < seen.width; ++x)
            maskBlob.ptr<float>(0, 0, y)[x] = reducedMarks->row(y)[x] > 1e-3f ? 1.0f : 0.0f;
    cv::Mat pictureBlob = state->blob(3, 0.0);
    putInto(pictureBlob, *result->resize(seen, square, true), maskBlob);

    _ImageData<PixelRGB<float>> painted(seen, picture.colorProfile());
    try {
        const std::lock_guard lock(state->running);
        const cv::Mat output = state->forward(pictureBlob, maskBlob);
        for (int y = 0; y < seen.height; ++y)
            for (int x = 0; x < seen.width; ++x) {
                const auto channel = [&](int c) { return output.ptr<float>(0, c, y)[x] / state->fullScale; };
                painted.row(y)[x] = clampValue(PixelRGB<float>{channel(0), channel(1), channel(2)});
            }
    } catch (const cv::Exception& error) {
        state->fail("expected a network that runs on the picture, found " + refusalOf(error));
    }
    control.throwIfCancelled();
    const auto enlarged = painted.resize(square.size(), {}, true);
    forEachRow(hole.size().height, [&](int y) {
        for (int x = 0; x < hole.size().width; ++x)
            if (hole.row(y)[x] != 0)
                result->row(y)[x] = enlarged->row(y - square.y)[x - square.x];
    });
    control.report(1.0f);
    return result;
}

} // namespace details
} // namespace orvo
