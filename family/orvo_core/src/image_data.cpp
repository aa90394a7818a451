#include <orvo_common/memory_manager.hpp>
#include <orvo_core/image_data.hpp>
#include <orvo_core/parallel.hpp>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <new>
#include <stdexcept>
#include <utility>

namespace orvo {

void details::endAtMissingRow(int y, int height)
{
    std::fprintf(stderr, "_ImageData::row: row %d of a picture of %d rows\n", y, height);
    std::abort();
}

namespace {

// Bytes of a plane of `size` values of `sampleBytes` each.
std::size_t planeBytes(_Size<int> size, std::size_t sampleBytes)
{
    if (size.width < 0 || size.height < 0)
        throw std::invalid_argument("_ImageData: the size is negative");
    const std::size_t pixels = static_cast<std::size_t>(size.width) * static_cast<std::size_t>(size.height);
    if (pixels > std::numeric_limits<std::size_t>::max() / sampleBytes)
        throw std::bad_alloc();
    return pixels * sampleBytes;
}

// The part of `rect` inside a picture of `size`, in 64 bits because a rectangle may end beyond the largest int.
_Rect<int> clipped(_Rect<int> rect, _Size<int> size)
{
    const auto limited = [](std::int64_t value, int upper) {
        return static_cast<int>(std::clamp<std::int64_t>(value, 0, upper));
    };
    const int left = limited(rect.x, size.width);
    const int top = limited(rect.y, size.height);
    const int right = limited(std::int64_t{rect.x} + rect.width, size.width);
    const int bottom = limited(std::int64_t{rect.y} + rect.height, size.height);
    return {left, top, std::max(0, right - left), std::max(0, bottom - top)};
}

// Clang 14 compiles the members for masks with every pixel type, although they cannot be called there.
template <typename T>
float* asFloats(T* samples)
{
    return reinterpret_cast<float*>(samples);
}

} // namespace

template <typename T>
_ImageData<T>::_ImageData(_Size<int> size, std::shared_ptr<ColorProfile> profile_)
    : extent(size), samples(static_cast<T*>(MemoryManager::instance().allocate(planeBytes(size, sizeof(T)), false))),
      profile(std::move(profile_))
{}

template <typename T>
_ImageData<T>::_ImageData(_Size<int> size, T fill, std::shared_ptr<ColorProfile> profile_)
    : _ImageData(size, std::move(profile_))
{
    forEachRow(extent.height, [&](int y) { std::fill_n(row(y), extent.width, fill); });
}

template <typename T>
_ImageData<T>::~_ImageData()
{
    MemoryManager::instance().free(samples);
}

template <typename T>
std::shared_ptr<_ImageData<T>> _ImageData<T>::copy(_Rect<int> rect) const
{
    const _Rect<int> part = rect == _Rect<int>() ? _Rect<int>(0, 0, width(), height()) : clipped(rect, extent);
    auto result = std::make_shared<_ImageData>(part.size(), profile);
    const std::size_t rowBytes = static_cast<std::size_t>(part.width) * sizeof(T);
    forEachRow(part.height,
               [&](int y) { std::memcpy(static_cast<void*>(result->row(y)), row(part.y + y) + part.x, rowBytes); });
    return result;
}

template <typename T>
void _ImageData<T>::fillRect(const float& value, _Rect<int> rect) requires std::same_as<T, float>
{
    const _Rect<int> part = clipped(rect, extent);
    const float fill = value; // `value` may refer to one of the samples being written
    forEachRow(part.height, [&](int y) { std::fill_n(asFloats(row(part.y + y)) + part.x, part.width, fill); });
}

template <typename T>
void _ImageData<T>::clamp() requires std::same_as<T, float>
{
    forEachRow(extent.height, [&](int y) {
        float* const values = asFloats(row(y));
        // NaN compares false and becomes 0, as in clampValue().
        for (int x = 0; x < extent.width; ++x)
            values[x] = values[x] > 0.0f ? (values[x] < 1.0f ? values[x] : 1.0f) : 0.0f;
    });
}

template class _ImageData<PixelRGB<float>>;
template class _ImageData<PixelRGBA<float>>;
template class _ImageData<float>;

MaskImage::MaskImage(_Size<int> size, float value) : _ImageData<float>(size, value, ColorProfileType::None()) {}

MaskImage::MaskImage(_Size<int> size) : _ImageData<float>(size, ColorProfileType::None()) {}

MaskImage::~MaskImage() = default;

} // namespace orvo
