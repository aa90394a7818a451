#include "color_profile_impl.hpp"

#include <orvo_core/color_transform.hpp>
#include <orvo_core/detail/vector_code.hpp>
#include <orvo_core/image_data.hpp>
#include <orvo_core/parallel.hpp>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <utility>

namespace orvo {
namespace {

using Impl = ColorProfile::Impl;

// Pixels that go through all steps at once; their three planes stay in the L1 cache.
constexpr int kBlock = 512;

struct Planes
{
    alignas(64) float red[kBlock];
    alignas(64) float green[kBlock];
    alignas(64) float blue[kBlock];

    [[nodiscard]] float* channel(int c) { return c == 0 ? red : c == 1 ? green : blue; }
};

struct MatrixLoop
{
    const float* m; // nine, row-major
    Planes& planes;
    int count;

    ORVO_INLINE void operator()() const
    {
        const float m00 = m[0], m01 = m[1], m02 = m[2];
        const float m10 = m[3], m11 = m[4], m12 = m[5];
        const float m20 = m[6], m21 = m[7], m22 = m[8];
        float* const red = planes.red;
        float* const green = planes.green;
        float* const blue = planes.blue;
        const int length = count;
        for (int i = 0; i < length; ++i) {
            const float r = red[i];
            const float g = green[i];
            const float b = blue[i];
            red[i] = m00 * r + m01 * g + m02 * b;
            green[i] = m10 * r + m11 * g + m12 * b;
            blue[i] = m20 * r + m21 * g + m22 * b;
        }
    }
};

ORVO_VECTOR_CLONES void spreadRGB(const float* pixels, int count, Planes& planes)
{
    for (int i = 0; i < count; ++i) {
        planes.red[i] = pixels[3 * i];
        planes.green[i] = pixels[3 * i + 1];
        planes.blue[i] = pixels[3 * i + 2];
    }
}

ORVO_VECTOR_CLONES void gatherRGB(const Planes& planes, int count, float* pixels)
{
    for (int i = 0; i < count; ++i) {
        pixels[3 * i] = planes.red[i];
        pixels[3 * i + 1] = planes.green[i];
        pixels[3 * i + 2] = planes.blue[i];
    }
}

template <int kStride>
void spread(const float* pixels, int count, Planes& planes)
{
    if constexpr (kStride == 3)
        return spreadRGB(pixels, count, planes);
    for (int i = 0; i < count; ++i) {
        planes.red[i] = pixels[i * kStride];
        planes.green[i] = pixels[i * kStride + 1];
        planes.blue[i] = pixels[i * kStride + 2];
    }
}

template <int kStride>
void gather(const Planes& planes, int count, float* pixels)
{
    if constexpr (kStride == 3)
        return gatherRGB(planes, count, pixels);
    for (int i = 0; i < count; ++i) {
        pixels[i * kStride] = planes.red[i];
        pixels[i * kStride + 1] = planes.green[i];
        pixels[i * kStride + 2] = planes.blue[i];
    }
}

// For each channel the light of the 256 samples of 8 bits.
constexpr int kByteSteps = 256;
constexpr float kByteStep = static_cast<float>(1.0 / (kByteSteps - 1));
using ByteTables = float[3][kByteSteps];

// Not for wider vectors: gathering from a table takes twice the time of plain loads.
void lookUp(const std::uint8_t* __restrict samples, const ByteTables& __restrict tables, int count,
            Planes& __restrict planes)
{
    for (int i = 0; i < count; ++i) {
        planes.red[i] = tables[0][samples[3 * i]];
        planes.green[i] = tables[1][samples[3 * i + 1]];
        planes.blue[i] = tables[2][samples[3 * i + 2]];
    }
}

bool isNone(const ColorProfile* profile) { return profile == nullptr || profile->impl().kind == Impl::Kind::kNone; }

bool hasTables(const ColorProfile& profile) { return profile.impl().kind == Impl::Kind::kTables; }

LcmsTransform checked(cmsHTRANSFORM made)
{
    if (made == nullptr)
        throw std::runtime_error("colorTransform: the tables of a profile do not support this direction");
    return LcmsTransform(made);
}

// cmsFLAGS_NOCACHE: a transform without a cache of its last pixel may be used by many threads at once.
LcmsTransform lcmsToXyz(const Impl& source)
{
    const LcmsProfile from = openLcmsProfile(source.icc);
    const LcmsProfile xyz(cmsCreateXYZProfileTHR(lcmsContext()));
    return checked(cmsCreateTransformTHR(lcmsContext(), from.get(), lcmsFormat(source.channels), xyz.get(),
                                         TYPE_XYZ_FLT, INTENT_RELATIVE_COLORIMETRIC, cmsFLAGS_NOCACHE));
}

LcmsTransform lcmsFromXyz(const Impl& target)
{
    const LcmsProfile xyz(cmsCreateXYZProfileTHR(lcmsContext()));
    const LcmsProfile to = openLcmsProfile(target.icc);
    return checked(cmsCreateTransformTHR(lcmsContext(), xyz.get(), TYPE_XYZ_FLT, to.get(), lcmsFormat(target.channels),
                                         INTENT_RELATIVE_COLORIMETRIC, cmsFLAGS_NOCACHE));
}

// Converts pixels of one profile to another. Each side is either our own curves and matrix or a LittleCMS transform to
// or from XYZ with D50; one matrix connects them. Immutable.
class Conversion
{
public:
    // The profiles must outlive this object. An empty one is None().
    Conversion(const ColorProfile* source_, int sourceChannels_, const ColorProfile* target_)
        : source(source_), target(target_), sourceChannels(sourceChannels_)
    {
        checkChannels();
        copies = isNone(source) || isNone(target) || source == target || *source == *target;
        if (copies)
            return;
        Matrix3 total = Matrix3::Identity();
        if (hasTables(*source))
            toXyz = lcmsToXyz(source->impl());
        else
            total = source->impl().xyzFromLinear;
        if (hasTables(*target))
            fromXyz = lcmsFromXyz(target->impl());
        else
            total = Matrix3(*inverse(target->impl().xyzFromLinear) * total);
        for (int i = 0; i < 9; ++i)
            matrix[static_cast<std::size_t>(i)] = static_cast<float>(total(i / 3, i % 3));
    }

    [[nodiscard]] bool onlyCopies() const { return copies; }

    // kTargetStride floats are one pixel of the target; with 4 the last one is not written.
    template <int kTargetStride>
    void run(const float* in, int inStride, float* out, std::size_t count) const
    {
        if (copies && in == out && inStride == kTargetStride)
            return;
        Planes planes;
        for (std::size_t begin = 0; begin < count; begin += kBlock) {
            const int length = static_cast<int>(std::min<std::size_t>(kBlock, count - begin));
            load(in + begin * static_cast<std::size_t>(inStride), inStride, length, planes);
            if (!copies)
                convert(planes, length);
            gather<kTargetStride>(planes, length, out + begin * kTargetStride);
        }
    }

    // Whether runBytes() can be called: three channels, and curves that a table holds.
    [[nodiscard]] bool takesBytes() const { return sourceChannels == 3 && !toXyz; }

    void fillTables(ByteTables& tables) const
    {
        for (std::size_t c = 0; c < 3; ++c) {
            for (int step = 0; step < kByteSteps; ++step)
                tables[c][step] = static_cast<float>(step) * kByteStep;
            if (!copies)
                source->impl().curves[c].decode(tables[c], kByteSteps);
        }
    }

    void runBytes(const std::uint8_t* in, const ByteTables& tables, float* out, std::size_t count) const
    {
        Planes planes;
        for (std::size_t begin = 0; begin < count; begin += kBlock) {
            const int length = static_cast<int>(std::min<std::size_t>(kBlock, count - begin));
            lookUp(in + 3 * begin, tables, length, planes);
            if (!copies)
                convertLight(planes, length);
            gather<3>(planes, length, out + 3 * begin);
        }
    }

private:
    void checkChannels() const
    {
        const int described = isNone(source) ? 3 : source->channelCount();
        const bool grayTables = !isNone(source) && described == 1 && hasTables(*source);
        const bool fits = sourceChannels == 4   ? described == 4
                          : sourceChannels == 3 ? described == 3 || (described == 1 && !grayTables)
                                                : sourceChannels == 1 && described != 4;
        if (!fits)
            throw std::invalid_argument("colorTransform: the source's profile does not match its channels");
        if (!isNone(target) && target->channelCount() != 3 && hasTables(*target))
            throw std::invalid_argument("colorTransform: the target's profile does not describe RGB pixels");
        if (sourceChannels == 4 && isNone(target))
            throw std::invalid_argument("colorTransform: CMYK samples need a target profile");
    }

    void load(const float* in, int stride, int count, Planes& planes) const
    {
        if (toXyz)
            return loadThroughTables(in, stride, count, planes);
        if (stride == 1) {
            for (int c = 0; c < 3; ++c)
                std::copy_n(in, count, planes.channel(c));
        } else if (stride == 3) {
            spread<3>(in, count, planes);
        } else {
            spread<4>(in, count, planes);
        }
    }

    void loadThroughTables(const float* in, int stride, int count, Planes& planes) const
    {
        constexpr float kAllInk = 100.0f; // LittleCMS measures ink in percent
        const int channels = source->channelCount();
        const float scale = channels == 4 ? kAllInk : 1.0f;
        float packed[kBlock * 4];
        float xyz[kBlock * 3];
        for (int i = 0; i < count; ++i)
            for (int c = 0; c < channels; ++c)
                packed[i * channels + c] = scale * in[i * stride + std::min(c, sourceChannels - 1)];
        cmsDoTransform(toXyz.get(), packed, xyz, static_cast<cmsUInt32Number>(count));
        spread<3>(xyz, count, planes);
    }

    void convert(Planes& planes, int count) const
    {
        if (!toXyz)
            for (int c = 0; c < 3; ++c)
                source->impl().curves[static_cast<std::size_t>(c)].decode(planes.channel(c), count);
        convertLight(planes, count);
    }

    void convertLight(Planes& planes, int count) const
    {
        runLoop(MatrixLoop{matrix, planes, count});
        if (fromXyz) {
            float xyz[kBlock * 3];
            float pixels[kBlock * 3];
            gather<3>(planes, count, xyz);
            cmsDoTransform(fromXyz.get(), xyz, pixels, static_cast<cmsUInt32Number>(count));
            spread<3>(pixels, count, planes);
        } else {
            for (int c = 0; c < 3; ++c)
                target->impl().curves[static_cast<std::size_t>(c)].encode(planes.channel(c), count);
        }
    }

    const ColorProfile* source;
    const ColorProfile* target;
    int sourceChannels;
    bool copies = false;
    LcmsTransform toXyz;   // where the source has tables
    LcmsTransform fromXyz; // where the target has tables
    float matrix[9] = {};
};

// `source` and `target` may be one picture.
template <typename T>
void convertPixels(const _ImageData<T>& source, const ColorProfile* profile, _ImageData<T>& target)
{
    if constexpr (std::is_same_v<T, float>) {
        // A mask's values are not colours.
        if (&source != &target)
            forEachRange(source.pixelCount(), [&](std::size_t first, std::size_t last) {
                std::copy(source.data() + first, source.data() + last, target.data() + first);
            });
    } else {
        constexpr int kStride = static_cast<int>(sizeof(T) / sizeof(float));
        const Conversion conversion(source.colorProfile().get(), 3, profile);
        if (conversion.onlyCopies() && &source == &target)
            return;
        forEachRange(source.pixelCount(), [&](std::size_t first, std::size_t last) {
            const T* const in = source.data() + first;
            T* const out = target.data() + first;
            if (conversion.onlyCopies()) {
                std::copy_n(in, last - first, out);
                return;
            }
            conversion.run<kStride>(&in->r, kStride, &out->r, last - first);
            if constexpr (kStride == 4)
                for (std::size_t i = 0; i < last - first; ++i)
                    out[i].a = in[i].a;
        });
    }
}

} // namespace

template <typename T>
void _ImageData<T>::colorTransform(std::shared_ptr<_ImageData>& target, bool) const
{
    if (!target || target->size() != extent)
        throw std::invalid_argument("_ImageData::colorTransform: the target must have the size of the picture");
    convertPixels(*this, target->colorProfile().get(), *target);
}

template <typename T>
void _ImageData<T>::colorTransform(std::shared_ptr<_ImageData>& target, std::shared_ptr<ColorProfile> newProfile,
                                   bool flag) const
{
    auto made = std::make_shared<_ImageData>(extent, std::move(newProfile));
    colorTransform(made, flag);
    target = std::move(made);
}

template <typename T>
void _ImageData<T>::convertTo(const std::shared_ptr<ColorProfile>& newProfile)
{
    convertPixels(*this, newProfile.get(), *this);
    profile = newProfile;
}

// The class itself is instantiated where its other members are defined.
#define ORVO_INSTANTIATE(T)                                                                                            \
    template void _ImageData<T>::colorTransform(std::shared_ptr<_ImageData<T>>&, bool) const;                          \
    template void _ImageData<T>::colorTransform(std::shared_ptr<_ImageData<T>>&, std::shared_ptr<ColorProfile>, bool)  \
        const;                                                                                                         \
    template void _ImageData<T>::convertTo(const std::shared_ptr<ColorProfile>&)
ORVO_INSTANTIATE(PixelRGB<float>);
ORVO_INSTANTIATE(PixelRGBA<float>);
ORVO_INSTANTIATE(float);
#undef ORVO_INSTANTIATE

class RowConverter::Kernel
{
public:
    Kernel(std::shared_ptr<const ColorProfile> source_, int channels_, std::shared_ptr<const ColorProfile> target_)
        : source(std::move(source_)), target(std::move(target_)), channels(channels_),
          conversion(source.get(), channels, target.get())
    {
        if (conversion.takesBytes())
            conversion.fillTables(tables);
    }

    void convert(const float* in, PixelRGB<float>* out, int count) const
    {
        if (count > 0)
            conversion.run<3>(in, channels, &out->r, static_cast<std::size_t>(count));
    }

    void convert(const std::uint8_t* in, PixelRGB<float>* out, int count) const
    {
        if (conversion.takesBytes()) {
            conversion.runBytes(in, tables, &out->r, static_cast<std::size_t>(std::max(0, count)));
            return;
        }
        float samples[kBlock * 4];
        for (int begin = 0; begin < count; begin += kBlock) {
            const int length = std::min(kBlock, count - begin);
            for (int i = 0; i < length * channels; ++i)
                samples[i] = static_cast<float>(in[begin * channels + i]) * kByteStep;
            convert(samples, out + begin, length);
        }
    }

private:
    std::shared_ptr<const ColorProfile> source;
    std::shared_ptr<const ColorProfile> target;
    int channels;
    Conversion conversion;
    ByteTables tables{};
};

RowConverter::RowConverter(const std::shared_ptr<const ColorProfile>& source, int sourceChannels,
                           const std::shared_ptr<const ColorProfile>& target)
    : kernel(std::make_unique<const Kernel>(source, sourceChannels, target))
{}

RowConverter::~RowConverter() = default;
RowConverter::RowConverter(RowConverter&&) noexcept = default;
RowConverter& RowConverter::operator=(RowConverter&&) noexcept = default;

void RowConverter::convert(const float* source, PixelRGB<float>* target, int count) const
{
    kernel->convert(source, target, count);
}

void RowConverter::convert(const std::uint8_t* source, PixelRGB<float>* target, int count) const
{
    kernel->convert(source, target, count);
}

} // namespace orvo
