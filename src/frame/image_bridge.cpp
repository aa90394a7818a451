#include "frame/image_bridge.hpp"

#include "frame/managed_mat.hpp"
#include "frame/sample_vectors.hpp"

#include <orvo_core/color_transform.hpp>
#include <orvo_core/detail/vector_code.hpp>
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

// 1/255 and 1/16383.5 to the bit. The half in the latter is a convention of the engine; white converts back to 0.99997.
constexpr float kByteStep = 0.003921569f;
constexpr float kWorkingStep = std::bit_cast<float>(0x38800100u);

// Pixels converted to sRGB at once; the block stays in the L1 cache.
constexpr int kBlock = 512;

ORVO_INLINE std::int16_t workingSample(float value)
{
    value = value > 0.0f ? value : 0.0f; // also maps NaN to 0
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
    for (std::ptrdiff_t i = 0; i < count; ++i) {
        out[3 * i] = workingSample(in[3 * i + 2]);
        out[3 * i + 1] = workingSample(in[3 * i + 1]);
        out[3 * i + 2] = workingSample(in[3 * i]);
    }
}

// The largest change of an sRGB sample on its way to the working space and back, if all samples of its pixel are
// within 0..1: rounding there counts most for dark samples, where the curve is steepest. The largest changes found are
// 8.5e-6 near black, 1.5e-6 at 0.24, and 0.6e-6 from 0.4 on.
ORVO_INLINE float mostChanged(float value)
{
    constexpr float kBright = 1e-6f;
    constexpr float kMoreAtBlack = 1e-5f;
    const float darkness = (1.0f - value) * (1.0f - value);
    return kBright + kMoreAtBlack * (darkness * darkness * darkness);
}

// 0 if the sample becomes the same integer with and without that way, else 1; 1 for samples outside of 0..1. Without
// conditions, since compilers turn those into branches that they cannot vectorise.
ORVO_INLINE std::uint32_t canChange(float value)
{
    constexpr int kSignBit = 31;
    const auto bits = std::bit_cast<std::uint32_t>(value); // increase with the value; a sign and NaN exceed all numbers
    const std::uint32_t isOutside = bits > std::bit_cast<std::uint32_t>(1.0f) ? 1 : 0;
    const float inside = std::bit_cast<float>(bits & (isOutside - 1));
    const float steps = inside * kWorkingWhite;
    const auto whole = static_cast<std::int32_t>(steps);
    const float share = steps - static_cast<float>(whole);
    const float most = mostChanged(inside) * kWorkingWhite;
    const float below = share - most + static_cast<float>(whole == 0 ? 1 : 0); // what is less than nothing is nothing
    const float above = 1.0f - most - share;
    return (std::bit_cast<std::uint32_t>(below) | std::bit_cast<std::uint32_t>(above)) >> kSignBit | isOutside;
}

ORVO_VECTOR_CLONES void findChangeable(const float* __restrict in, std::uint8_t* __restrict flags, int count)
{
    for (std::ptrdiff_t i = 0; i < count; ++i)
        flags[i] = static_cast<std::uint8_t>(canChange(in[i]));
}

// Converts sRGB to the working space and back, and to working samples: with the same result as conversion of all
// pixels, but only of those that it can change.
class RoundTrip
{
public:
    void convert(const PixelRGB<float>* in, std::int16_t* out, int count) const
    {
        std::uint8_t flags[3 * kBlock];
        int places[kBlock + 1]; // each place is written before it is known to count
        PixelRGB<float> pixels[kBlock];
        std::int16_t samples[3 * kBlock];
        toWorking(&in->r, out, count);
        findChangeable(&in->r, flags, 3 * count);
        int found = 0;
        for (int x = 0; x < count; ++x) {
            places[found] = x;
            found += flags[3 * x] | flags[3 * x + 1] | flags[3 * x + 2];
        }
        for (int i = 0; i < found; ++i)
            pixels[i] = in[places[i]];
        there.convert(&pixels->r, pixels, found);
        back.convert(&pixels->r, pixels, found);
        toWorking(&pixels->r, samples, found);
        for (int i = 0; i < found; ++i)
            std::copy_n(samples + 3 * i, 3, out + std::ptrdiff_t{3} * places[i]);
    }

private:
    RowConverter there{ColorProfileType::sRGB(), 3, ColorProfileType::melissaRGB()};
    RowConverter back{ColorProfileType::melissaRGB(), 3, ColorProfileType::sRGB()};
};

ORVO_VECTOR_CLONES void fromWorking(const std::int16_t* __restrict in, float* __restrict out, int count)
{
    for (std::ptrdiff_t i = 0; i < count; ++i) {
        out[3 * i] = limited(static_cast<float>(in[3 * i + 2]) * kWorkingStep);
        out[3 * i + 1] = limited(static_cast<float>(in[3 * i + 1]) * kWorkingStep);
        out[3 * i + 2] = limited(static_cast<float>(in[3 * i]) * kWorkingStep);
    }
}

ORVO_VECTOR_CLONES void fromBytes(const std::uint8_t* __restrict in, float* __restrict out, int count)
{
    for (std::ptrdiff_t i = 0; i < count; ++i) {
        out[3 * i] = static_cast<float>(in[3 * i + 2]) * kByteStep;
        out[3 * i + 1] = static_cast<float>(in[3 * i + 1]) * kByteStep;
        out[3 * i + 2] = static_cast<float>(in[3 * i]) * kByteStep;
    }
}

ORVO_VECTOR_CLONES void fromGrayBytes(const std::uint8_t* __restrict in, float* __restrict out, int count)
{
    for (std::ptrdiff_t i = 0; i < count; ++i) {
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

// The position of a result column or row between two of the source.
struct Between
{
    std::ptrdiff_t near; // samples from the row's start, or rows
    std::ptrdiff_t far;
    float share; // of the far one
};

// Large positions are rounded, so the last one may reach the end of the source; `near` is limited for this case. The
// limit does not change positions inside the source.
Between between(int index, float step, float start, int count)
{
    float whole = 0.0f;
    const float share = modff(static_cast<float>(index) * step + start, &whole);
    const float last = static_cast<float>(count - 1);
    const int near = static_cast<int>(whole > 0.0f ? std::min(whole, last) : 0.0f);
    return {near, std::min(count - 1, near + 1), share};
}

// The weights of the four samples around a position.
struct Weights
{
    float nearUpper, farUpper, farLower, nearLower;

    Weights(float right, float down)
        : nearUpper((1.0f - right) * (1.0f - down)), farUpper(right * (1.0f - down)), farLower(right * down),
          nearLower((1.0f - right) * down)
    {}
};

template <typename Sample, int kChannels>
void copyPartPixel(const Sample* upper, const Sample* lower, float down, const Between& column, Sample* out)
{
    const Weights weights(column.share, down);
    for (int c = 0; c < kChannels; ++c) {
        const float value = static_cast<float>(upper[column.near + c]) * weights.nearUpper +
                            static_cast<float>(upper[column.far + c]) * weights.farUpper +
                            static_cast<float>(lower[column.far + c]) * weights.farLower +
                            static_cast<float>(lower[column.near + c]) * weights.nearLower;
        out[c] = static_cast<Sample>(static_cast<std::int32_t>(value));
    }
}

// Colour pixels whose fourth sample, the first of the next pixel, can also be read and written: the same bits as
// copyPartPixel(), twice as fast. Each pixel overwrites the extra sample that the previous one wrote.
ORVO_VECTOR_CLONES void copyPartPixels(const std::int16_t* upper, const std::int16_t* lower, float down,
                                       const Between* columns, int count, std::int16_t* out)
{
    for (std::ptrdiff_t i = 0; i < count; ++i) {
        const Between& column = columns[i];
        const Weights weights(column.share, down);
        const Floats4 value =
            floatsAt(upper + column.near) * weights.nearUpper + floatsAt(upper + column.far) * weights.farUpper +
            floatsAt(lower + column.far) * weights.farLower + floatsAt(lower + column.near) * weights.nearLower;
        const Samples4 samples = __builtin_convertvector(__builtin_convertvector(value, Integers4), Samples4);
        std::memcpy(out + 3 * i, &samples, sizeof samples);
    }
}

// The number of columns, from the left, with another one to their right in the source and in the result.
int columnsWithNeighbour(const std::vector<Between>& columns, std::ptrdiff_t lastOfSource)
{
    std::size_t count = 0;
    while (count + 1 < columns.size() && columns[count].far < lastOfSource)
        ++count;
    return static_cast<int>(count);
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
    const int fast = kChannels == 3 ? columnsWithNeighbour(columns, std::ptrdiff_t{3} * (source.cols - 1)) : 0;
    forEachRow(target.rows, [&](int y) {
        const Between row = between(y, stepY, rect.y, source.rows);
        const auto* const upper = source.ptr<Sample>(static_cast<int>(row.near));
        const auto* const lower = source.ptr<Sample>(static_cast<int>(row.far));
        auto* const out = target.ptr<Sample>(y);
        if constexpr (kChannels == 3)
            copyPartPixels(upper, lower, row.share, columns.data(), fast, out);
        for (int x = fast; x < target.cols; ++x)
            copyPartPixel<Sample, kChannels>(upper, lower, row.share, columns[static_cast<std::size_t>(x)],
                                             out + std::ptrdiff_t{kChannels} * x);
    });
}

} // namespace

cv::Mat cvMatFromImageData(std::shared_ptr<const _ImageData<PixelRGB<float>>> image)
{
    if (!image)
        return {};
    const int width = image->width();
    const std::shared_ptr<ColorProfile>& profile = image->colorProfile();
    // Converted block by block, with the same bits as colorTransform(), so that no second picture is needed.
    std::optional<RowConverter> toSRGB;
    if (profile && *profile != *ColorProfileType::sRGB())
        toSRGB.emplace(profile, 3, ColorProfileType::sRGB());

    cv::Mat mat = managedMat(image->height(), width, CV_16SC3);
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
            toWorking(&converted->r, out + std::ptrdiff_t{3} * x, count);
        }
    });
    return mat;
}

cv::Mat cvMatThroughWorkingSpace(std::shared_ptr<const _ImageData<PixelRGB<float>>> image)
{
    if (!image || !image->colorProfile() || image->colorProfile()->icc() != ColorProfileType::sRGB()->icc())
        return cvMatFromImageData(std::move(image));
    const int width = image->width();
    const RoundTrip roundTrip;
    cv::Mat mat = managedMat(image->height(), width, CV_16SC3);
    forEachRow(image->height(), [&](int y) {
        const PixelRGB<float>* const in = image->row(y);
        auto* const out = mat.ptr<std::int16_t>(y);
        for (int x = 0; x < width; x += kBlock)
            roundTrip.convert(in + x, out + std::ptrdiff_t{3} * x, std::min(kBlock, width - x));
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
