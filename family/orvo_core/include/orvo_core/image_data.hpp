/// Samples of a picture or a mask in memory.
#pragma once

#include <orvo_common/export.hpp>
#include <orvo_core/color_profile.hpp>
#include <orvo_core/geometry.hpp>
#include <orvo_core/pixel.hpp>

#include <concepts>
#include <cstddef>
#include <memory>

namespace orvo {
namespace details {
/// Reports a row that a picture of `height` rows does not have, and ends the program.
[[noreturn]] ORVO_EXPORT void endAtMissingRow(int y, int height);
} // namespace details

/// A picture of contiguous rows without gaps, from MemoryManager. T is PixelRGB<float>, PixelRGBA<float> or float.
/// Not copyable by accident: copy() says so.
template <typename T>
class ORVO_EXPORT _ImageData
{
public:
    /// Contents not set. Throws std::invalid_argument on a negative size, std::bad_alloc.
    _ImageData(_Size<int> size, std::shared_ptr<ColorProfile> profile);
    /// Every sample set to `fill`.
    _ImageData(_Size<int> size, T fill, std::shared_ptr<ColorProfile> profile);
    virtual ~_ImageData();
    _ImageData(const _ImageData&) = delete;
    _ImageData& operator=(const _ImageData&) = delete;

    [[nodiscard]] int width() const { return extent.width; }
    [[nodiscard]] int height() const { return extent.height; }
    [[nodiscard]] _Size<int> size() const { return extent; }
    [[nodiscard]] std::size_t pixelCount() const
    {
        return static_cast<std::size_t>(extent.width) * static_cast<std::size_t>(extent.height);
    }
    [[nodiscard]] T* data() { return samples; }
    [[nodiscard]] const T* data() const { return samples; }
    /// `y`: 0 to height() - 1, which builds with ORVO_CHECKED (the sanitizer presets) check.
    [[nodiscard]] T* row(int y) { return samples + rowOffset(y); }
    [[nodiscard]] const T* row(int y) const { return samples + rowOffset(y); }

    [[nodiscard]] const std::shared_ptr<ColorProfile>& colorProfile() const { return profile; }
    /// Says what the samples mean from now on; converts nothing.
    void setColorProfile(std::shared_ptr<ColorProfile> newProfile) { profile = std::move(newProfile); }

    /// A deep copy of `rect`; the zero rectangle is the whole picture. The part outside the picture is left out.
    [[nodiscard]] std::shared_ptr<_ImageData> copy(_Rect<int> rect) const;

    /// A new picture of `size` that shows `rect` (the zero rectangle: all; the zero size: the size of `rect`).
    /// Area average when it shrinks, Catmull-Rom cubic when it grows, each axis by itself, in the encoded values as
    /// they stand; sample centres stay where they are, so nothing moves by half a pixel. A part outside the picture
    /// repeats its edge. `flag` is always true here. Throws std::invalid_argument on a negative size and where pixels
    /// are asked for of a part that has none. Peak: the result and one plane of (size.width x rect.height).
    [[nodiscard]] std::shared_ptr<_ImageData> resize(_Size<int> size, const _Rect<int>& rect, bool flag) const;

    /// Writes this picture, converted to `target`'s profile, into `target`, which has this picture's size (otherwise
    /// std::invalid_argument). For PixelRGB and PixelRGBA; alpha is copied, and so is a mask as a whole. None() on
    /// either side copies unchanged. Relative colorimetric with black as it is, values outside 0..1 kept by matrix
    /// profiles. Throws std::invalid_argument on a profile that does not describe RGB pixels (CMYK), std::runtime_error
    /// if the tables of a profile do not serve this direction. `flag` is always true here.
    void colorTransform(std::shared_ptr<_ImageData>& target, bool flag) const;
    /// Converts to `profile` into a picture that it makes in `target`.
    void colorTransform(std::shared_ptr<_ImageData>& target, std::shared_ptr<ColorProfile> profile, bool flag) const;
    /// Converts in place: no second picture.
    void convertTo(const std::shared_ptr<ColorProfile>& newProfile);

    /// For masks. The part of `rect` outside the picture is left out.
    void fillRect(const float& value, _Rect<int> rect) requires std::same_as<T, float>;
    /// Limits all samples to 0..1.
    void clamp() requires std::same_as<T, float>;

private:
    [[nodiscard]] std::ptrdiff_t rowOffset(int y) const
    {
#ifdef ORVO_CHECKED
        if (y < 0 || y >= extent.height)
            details::endAtMissingRow(y, extent.height);
#endif
        return static_cast<std::ptrdiff_t>(y) * extent.width;
    }

    _Size<int> extent;
    T* samples = nullptr;
    std::shared_ptr<ColorProfile> profile;
};

extern template class _ImageData<PixelRGB<float>>;
extern template class _ImageData<PixelRGBA<float>>;
extern template class _ImageData<float>;

/// A plane of weights, 0..1, without a colour profile.
class ORVO_EXPORT MaskImage : public _ImageData<float>
{
public:
    MaskImage(_Size<int> size, float value);
    explicit MaskImage(_Size<int> size);
    ~MaskImage() override;
    /// As _ImageData::resize(), limited to 0..1.
    [[nodiscard]] std::shared_ptr<MaskImage> resize(_Size<int> size, const _Rect<int>& rect, bool flag) const;
};

} // namespace orvo
