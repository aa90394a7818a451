#include "frame/image_bridge.hpp"

#include "frame/vector_clones.hpp"

#include <orvo_core/color_transform.hpp>
#include <orvo_core/parallel.hpp>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <optional>
#include <vector>

namespace orvo {
namespace {

// 1/255 and 1/16383.5 to the bit. The half in the latter is a convention of the engine; white comes back as 0.99997.
constexpr float kByteStep = 0.003921569f;
constexpr float kWorkingStep = std::bit_cast<float>(0x38800100u);

// Pixels that are converted to sRGB at once; the block stays in the first cache.
constexpr int kBlock = 512;

ORVO_INLINE std::int16_t workingSample(float value)
{
    value = value > 0.0f ? value : 0.0f; // what is not a number too
    value = value < 1.0f ? value : 1.0f;
    return static_cast<std::int16_t>(static_cast<std::int32_t>(value * kWorkingWhite));
}

ORVO_INLINE float limited(float value)
{
    value = value > 0.0f ? value : 0.0f;
    return value < 1.0f ? value : 1.0f;
}

ORVO_VECTOR_CLONES void toWorking(const float* __restrict in, std::int16_t* __restrict out, int count)
{
    for (int i = 0; i < count; ++i) {
        out[3 * i] = workingSample(in[3 * i + 2]);
        out[3 * i + 1] = workingSample(in[3 * i + 1]);
        out[3 * i + 2] = workingSample(in[3 * i]);
    }
}

ORVO_VECTOR_CLONES void fromWorking(const std::int16_t* __restrict in, float* __restrict out, int count)
{
    for (int i = 0; i < count; ++i) {
        out[3 * i] = limited(static_cast<float>(in[3 * i + 2]) * kWorkingStep);
        out[3 * i + 1] = limited(static_cast<float>(in[3 * i + 1]) * kWorkingStep);
        out[3 * i + 2] = limited(static_cast<float>(in[3 * i]) * kWorkingStep);
    }
}

ORVO_VECTOR_CLONES void fromBytes(const std::uint8_t* __restrict in, float* __restrict out, int count)
{
    for (int i = 0; i < count; ++i) {
        out[3 * i] = static_cast<float>(in[3 * i + 2]) * kByteStep;
        out[3 * i + 1] = static_cast<float>(in[3 * i + 1]) * kByteStep;
        out[3 * i + 2] = static_cast<float>(in[3 * i]) * kByteStep;
    }
}

ORVO_VECTOR_CLONES void fromGrayBytes(const std::uint8_t* __restrict in, float* __restrict out, int count)
{
    for (int i = 0; i < count; ++i) {
        const float value = static_cast<float>(in[i]) * kByteStep;
        out[3 * i] = value;
        out[3 * i + 1] = value;
        out[3 * i + 2] = value;
    }
}

ORVO_VECTOR_CLONES void maskFromBytes(const std::uint8_t* __restrict in, float* __restrict out, int count)
{
    for (int i = 0; i < count; ++i)
        out[i] = static_cast<float>(in[i]) * kByteStep;
}

// Where a result column or row falls between two of the source.
struct Between
{
    std::ptrdiff_t near; // samples from the row's start, or rows
    std::ptrdiff_t far;
    float share; // of the far one
};

// The position is rounded once it is large, so the last one may come out on the end of the source; `near` is limited
// for that. Positions in the source itself are not touched by it.
Between between(int index, float step, float start, int count)
{
    float whole = 0.0f;
    const float share = modff(static_cast<float>(index) * step + start, &whole);
    const float last = static_cast<float>(count - 1);
    const int near = static_cast<int>(whole > 0.0f ? std::min(whole, last) : 0.0f);
    return {near, std::min(count - 1, near + 1), share};
}

template <typename Sample, int kChannels>
void copyPartRow(const Sample* upper, const Sample* lower, float down, const std::vector<Between>& columns, Sample* out)
{
    const float up = 1.0f - down;
    for (const Between& column : columns) {
        const float left = 1.0f - column.share;
        const float nearUpper = left * up;
        const float farUpper = column.share * up;
        const float farLower = column.share * down;
        const float nearLower = left * down;
        for (int c = 0; c < kChannels; ++c) {
            const float value = static_cast<float>(upper[column.near + c]) * nearUpper +
                                static_cast<float>(upper[column.far + c]) * farUpper +
                                static_cast<float>(lower[column.far + c]) * farLower +
                                static_cast<float>(lower[column.near + c]) * nearLower;
            *out++ = static_cast<Sample>(static_cast<std::int32_t>(value));
        }
    }
}

template <typename Sample, int kChannels>
void resamplePart(const cv::Mat& source, cv::Mat& target, const cv::Rect_<float>& rect)
{
    const float stepX = rect.width / static_cast<float>(target.cols);
    const float stepY = rect.height / static_cast<float>(target.rows);
    std::vector<Between> columns(static_cast<std::size_t>(target.cols));
    for (int x = 0; x < target.cols; ++x) {
        Between column = between(x, stepX, rect.x, source.cols);
        column.near *= kChannels;
        column.far *= kChannels;
        columns[static_cast<std::size_t>(x)] = column;
    }
    forEachRow(target.rows, [&](int y) {
        const Between row = between(y, stepY, rect.y, source.rows);
        copyPartRow<Sample, kChannels>(source.ptr<Sample>(static_cast<int>(row.near)),
                                       source.ptr<Sample>(static_cast<int>(row.far)), row.share, columns,
                                       target.ptr<Sample>(y));
    });
}

} // namespace

cv::Mat cvMatFromImageData(std::shared_ptr<const _ImageData<PixelRGB<float>>> image)
{
    if (!image)
        return {};
    const int width = image->width();
    const std::shared_ptr<ColorProfile>& profile = image->colorProfile();
    // Converted block by block on the way, with the bits that colorTransform() gives, so that no second picture is
    // made.
    std::optional<RowConverter> toSRGB;
    if (profile && *profile != *ColorProfileType::sRGB())
        toSRGB.emplace(profile, 3, ColorProfileType::sRGB());

    cv::Mat mat(image->height(), width, CV_16SC3);
    forEachRow(image->height(), [&](int y) {
        const PixelRGB<float>* const in = image->row(y);
        auto* const out = mat.ptr<std::int16_t>(y);
        if (!toSRGB) {
            toWorking(&in->r, out, width);
            return;
        }
        PixelRGB<float> converted[kBlock];
        for (int x = 0; x < width; x += kBlock) {
            const int count = std::min(kBlock, width - x);
            toSRGB->convert(&in[x].r, converted, count);
            toWorking(&converted->r, out + 3 * x, count);
        }
    });
    return mat;
}

std::shared_ptr<_ImageData<PixelRGB<float>>> imageDataFromCVMat(const cv::Mat& mat)
{
    const int type = mat.type();
    if (type != CV_8UC1 && type != CV_8UC3 && type != CV_16SC3)
        return nullptr;
    auto image =
        std::make_shared<_ImageData<PixelRGB<float>>>(_Size<int>(mat.cols, mat.rows), ColorProfileType::sRGB());
    forEachRow(mat.rows, [&](int y) {
        float* const out = &image->row(y)->r;
        if (type == CV_16SC3)
            fromWorking(mat.ptr<std::int16_t>(y), out, mat.cols);
        else if (type == CV_8UC3)
            fromBytes(mat.ptr(y), out, mat.cols);
        else
            fromGrayBytes(mat.ptr(y), out, mat.cols);
    });
    return image;
}

std::shared_ptr<_ImageData<float>> ImageDataGrayFromCVMat(const cv::Mat& mat)
{
    const int type = mat.type();
    if (type != CV_8UC1 && type != CV_32FC1)
        return nullptr;
    auto image = std::make_shared<_ImageData<float>>(_Size<int>(mat.cols, mat.rows), ColorProfileType::None());
    forEachRow(mat.rows, [&](int y) {
        if (type == CV_32FC1)
            std::memcpy(image->row(y), mat.ptr(y), static_cast<std::size_t>(mat.cols) * sizeof(float));
        else
            maskFromBytes(mat.ptr(y), image->row(y), mat.cols);
    });
    return image;
}

void copyPart(cv::InputArray src, cv::OutputArray dst, const cv::Rect_<float>& rect, const cv::Size_<int>& size)
{
    const int type = src.type();
    if (src.empty() || (type != CV_8UC1 && type != CV_16SC3))
        return;
    const cv::Mat source = src.getMat();
    dst.create(size, type);
    cv::Mat target = dst.getMat();
    if (type == CV_8UC1)
        resamplePart<std::uint8_t, 1>(source, target, rect);
    else
        resamplePart<std::int16_t, 3>(source, target, rect);
}

} // namespace orvo
