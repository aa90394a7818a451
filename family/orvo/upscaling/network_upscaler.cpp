#include "upscaling/network_upscaler.hpp"

#include "networks/network_refusal.hpp"
#include "networks/onnx_input.hpp"
#include "networks/quiet_opencv.hpp"
#include "upscaling/cubic_rows.hpp"
#include "upscaling/noise_level.hpp"

#include <orvo/upscaling.hpp>
#include <orvo_common/part_progress.hpp>

#include <opencv2/dnn.hpp>

#include <algorithm>
#include <cmath>
#include <string>
#include <vector>

namespace orvo::details {
namespace {

constexpr int kMostScale = kMostUpscaleScale;
// Approximate side of the kept part of a tile: large relative to the overlap, small enough for the planes of a deep
// network (64 channels of such a tile are 4 MB).
constexpr int kTileCore = 128;
constexpr int kMostWindow = 4096; // a network that declares larger sides needs more memory than any machine has
constexpr int kTileGrain = 8;     // networks that halve their planes need sides that can be halved three times

std::string dimensions(const cv::Mat& blob)
{
    std::string text;
    for (int i = 0; i < blob.dims; ++i)
        text += (i == 0 ? "" : " x ") + std::to_string(blob.size[i]);
    return text.empty() ? "nothing" : text;
}

} // namespace

struct NetworkUpscaler::State
{
    cv::dnn::Net net;
    std::filesystem::path model;
    int channels = 0;
    int scale = 0;
    int overlap = 0;
    cv::Size window; // input of the network
    cv::Size core;   // the kept part of it, in samples of the small picture

    // One run; `input` has the channels and the window as its sides.
    cv::Mat forward(const cv::Mat& input)
    {
        net.setInput(input);
        return net.forward();
    }

    [[nodiscard]] cv::Mat blob() const
    {
        const int sizes[] = {1, channels, window.height, window.width};
        return cv::Mat(4, sizes, CV_32F, cv::Scalar(0.5));
    }

    // The scale of the output, 0 if there is none.
    [[nodiscard]] int scaleOf(const cv::Mat& output) const
    {
        if (output.dims != 4 || output.type() != CV_32F || output.size[0] != 1 || output.size[1] != channels ||
            output.size[2] % window.height != 0 || output.size[3] % window.width != 0 ||
            output.size[2] / window.height != output.size[3] / window.width)
            return 0;
        return output.size[2] / window.height;
    }

    [[noreturn]] void fail(const std::string& expectedAndFound) const
    {
        throw FailureError({FailureKind::UnreadableFile, model, expectedAndFound});
    }

    // The window is the declared one, if any: such networks work at no other size.
    void chooseWindow(const OnnxInput& declared)
    {
        const bool four = declared.sides.size() == 4;
        const bool one = four && declared.sides[0] <= 1;
        const bool colours = four && (declared.sides[1] == 0 || declared.sides[1] == 1 || declared.sides[1] == 3);
        if (!one || !colours) {
            std::string found;
            for (const std::int64_t side : declared.sides)
                found += (found.empty() ? "" : " x ") + (side == 0 ? "any" : std::to_string(side));
            fail("expected an input of 1 x C x H x W with C = 3 or 1, found " + (found.empty() ? "none" : found));
        }
        const auto side = [&](std::int64_t given) {
            const int usual = (kTileCore + 2 * overlap + kTileGrain - 1) / kTileGrain * kTileGrain;
            if (given != 0 && (given <= 2 * overlap || given > kMostWindow))
                fail("expected an input with sides above two overlaps (Upscale.overlap), " +
                     std::to_string(2 * overlap) + ", and of at most " + std::to_string(kMostWindow) + ", found " +
                     std::to_string(given));
            return given == 0 ? usual : static_cast<int>(given);
        };
        window = {side(declared.sides[3]), side(declared.sides[2])};
        core = {window.width - 2 * overlap, window.height - 2 * overlap};
    }

    // Loads the network for that many channels and tries it on a window. False if it does not enlarge the window;
    // `found` then describes its output.
    bool tryChannels(const std::vector<uchar>& bytes, const std::string& input, int depth, std::string& found)
    {
        channels = depth;
        found += "; for C = " + std::to_string(depth) + " ";
        try {
            const QuietOpenCv quiet; // its message comes with the exception
            net = cv::dnn::readNetFromONNX(withInput(bytes, input, {1, depth, window.height, window.width}));
            net.setPreferableBackend(cv::dnn::DNN_BACKEND_OPENCV);
            net.setPreferableTarget(cv::dnn::DNN_TARGET_CPU);
            const cv::Mat output = forward(blob());
            scale = scaleOf(output);
            found += "it returns " + dimensions(output);
        } catch (const std::exception& error) { // damaged files give those of the standard library too
            found += "it has " + refusalOf(error);
            return false;
        }
        return scale >= 1 && scale <= kMostScale;
    }

    void load()
    {
        const std::vector<uchar> bytes = readOnnxFile(model);
        const auto declared = declaredInput(bytes);
        if (!declared)
            fail("expected an ONNX file, found one without a graph that has an input");
        const std::string damage = graphDamage(bytes);
        if (!damage.empty())
            fail("expected an undamaged ONNX file, found that " + damage);
        chooseWindow(*declared);
        std::string found;
        for (const int depth : {3, 1})
            if ((declared->sides[1] == 0 || declared->sides[1] == depth) &&
                tryChannels(bytes, declared->name, depth, found))
                return;
        fail("expected it to map 1 x C x " + std::to_string(window.height) + " x " + std::to_string(window.width) +
             " values to as many channels, enlarged by 1 to " + std::to_string(kMostScale) + found);
    }
};

NetworkUpscaler::NetworkUpscaler(const std::filesystem::path& model, std::optional<int> scale, int overlap)
    : state(std::make_unique<State>())
{
    state->model = model;
    if (overlap < 0 || overlap > kMostOverlap)
        state->fail("expected an overlap (Upscale.overlap) of 0 to " + std::to_string(kMostOverlap) + ", found " +
                    std::to_string(overlap));
    if (scale && (*scale < 1 || *scale > kMostScale))
        state->fail("expected a scale (Upscale.scale) of 1 to " + std::to_string(kMostScale) + ", found " +
                    std::to_string(*scale));
    state->overlap = overlap;
    state->load();
    if (scale && *scale != state->scale)
        state->fail("expected a network that enlarges by " + std::to_string(*scale) +
                    " (Upscale.scale), this one enlarges by " + std::to_string(state->scale));
}

NetworkUpscaler::~NetworkUpscaler() = default;

int NetworkUpscaler::scale() const { return state->scale; }

namespace {

// Fills the planes of `input` with the window of the picture that begins at (left, top).
void fillWindow(const _ImageData<PixelRGB<float>>& source, int left, int top, cv::Mat& input)
{
    const int channels = input.size[1];
    for (int y = 0; y < input.size[2]; ++y) {
        const PixelRGB<float>* const row = source.row(std::clamp(top + y, 0, source.height() - 1));
        float* const first = input.ptr<float>(0, 0, y);
        for (int x = 0; x < input.size[3]; ++x) {
            const PixelRGB<float>& p = row[std::clamp(left + x, 0, source.width() - 1)];
            if (channels == 1) {
                first[x] = luma(p);
            } else {
                first[x] = p.r;
                input.ptr<float>(0, 1, y)[x] = p.g;
                input.ptr<float>(0, 2, y)[x] = p.b;
            }
        }
    }
}

} // namespace

bool NetworkUpscaler::enlarge(const _ImageData<PixelRGB<float>>& source, _ImageData<PixelRGB<float>>& target,
                              const RunControl& run)
{
    const int scale = state->scale;
    const cv::Size core = state->core;
    // The luma of a network of one channel replaces that of the plainly enlarged colours.
    if (state->channels == 1 && !enlargeByCubic(source, scale, target, run))
        return false;
    cv::Mat input = state->blob();
    const auto keep = [&](const cv::Mat& output, int left, int top) {
        const int width = std::min(core.width, source.width() - left) * scale;
        const int height = std::min(core.height, source.height() - top) * scale;
        const int skip = state->overlap * scale;
        for (int y = 0; y < height; ++y) {
            PixelRGB<float>* const row = target.row(top * scale + y) + left * scale;
            const PixelRGB<float>* const nearest = source.row(top + y / scale) + left;
            const float* const first = output.ptr<float>(0, 0, skip + y) + skip;
            if (state->channels == 1) {
                for (int x = 0; x < width; ++x) {
                    const float change = first[x] - luma(row[x]);
                    if (std::isfinite(change))
                        row[x] = {row[x].r + change, row[x].g + change, row[x].b + change};
                }
                continue;
            }
            const float* const second = output.ptr<float>(0, 1, skip + y) + skip;
            const float* const third = output.ptr<float>(0, 2, skip + y) + skip;
            for (int x = 0; x < width; ++x) {
                const bool whole = std::isfinite(first[x]) && std::isfinite(second[x]) && std::isfinite(third[x]);
                row[x] = whole ? PixelRGB<float>{first[x], second[x], third[x]} : nearest[x / scale];
            }
        }
    };
    try {
        const int across = (source.width() + core.width - 1) / core.width;
        const int down = (source.height() + core.height - 1) / core.height;
        LoopProgress progress(run, across * down);
        for (int top = 0; top < source.height(); top += core.height)
            for (int left = 0; left < source.width(); left += core.width) {
                if (run.cancelled())
                    return false;
                fillWindow(source, left - state->overlap, top - state->overlap, input);
                const cv::Mat output = state->forward(input);
                if (state->scaleOf(output) != scale)
                    state->fail("expected a tile enlarged by " + std::to_string(scale) + ", it returned " +
                                dimensions(output));
                keep(output, left, top);
                progress.pieceDone();
            }
    } catch (const cv::Exception& error) {
        if (error.code == cv::Error::StsNoMem)
            throw std::bad_alloc();
        state->fail("expected a network that runs on all tiles of the picture, found " + refusalOf(error));
    }
    return true;
}

} // namespace orvo::details
