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
/// Reports an access to a row beyond `height` and ends the program.
[[noreturn]] ORVO_EXPORT void endAtMissingRow(int y, int height);
} // namespace details

/// A picture with contiguous rows, allocated by MemoryManager. T is PixelRGB<float>, PixelRGBA<float> or float.
/// Copies only through copy().
template <typename T>
class ORVO_EXPORT _ImageData
{
public:
    /// Contents uninitialised. Throws std::invalid_argument on a negative size, std::bad_alloc.
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
    /// `y`: 0 to height() - 1, checked in builds with ORVO_CHECKED (the sanitizer presets).
    [[nodiscard]] T* row(int y) { return samples + rowOffset(y); }
    [[nodiscard]] const T* row(int y) const { return samples + rowOffset(y); }

    [[nodiscard]] const std::shared_ptr<ColorProfile>& colorProfile() const { return profile; }
    /// Changes the meaning of the samples; converts nothing.
    void setColorProfile(std::shared_ptr<ColorProfile> newProfile) { profile = std::move(newProfile); }

    /// A deep copy of `rect`; a zero rectangle is the whole picture. Clips `rect` to the picture.
    [[nodiscard]] std::shared_ptr<_ImageData> copy(_Rect<int> rect) const;

    /// A new picture of `size` that shows `rect` (the zero rectangle: all; the zero size: the size of `rect`).
    /// Shrinks by area average, enlarges with a Catmull-Rom cubic, each axis separately, on the encoded values; sample
    /// centres keep their positions, so nothing shifts by half a pixel. A part outside the picture repeats its edge.
    /// `flag` is always true here. Throws std::invalid_argument on a negative size and if pixels are requested from an
    /// empty part. Peak: the result and one plane of (size.width x rect.height).
    [[nodiscard]] std::shared_ptr<_ImageData> resize(_Size<int> size, const _Rect<int>& rect, bool flag) const;

    /// Writes this picture, converted to `target`'s profile, into `target`, which must have this picture's size
    /// (otherwise std::invalid_argument). For PixelRGB and PixelRGBA; alpha is copied, and so is a whole mask. None()
    /// on either side copies unchanged. Relative colorimetric without black point compensation; matrix profiles keep
    /// values outside 0..1. Throws std::invalid_argument on a profile that does not describe RGB pixels (CMYK),
    /// std::runtime_error if the tables of a profile do not support this direction. `flag` is always true here.
    void colorTransform(std::shared_ptr<_ImageData>& target, bool flag) const;
    /// Converts to `profile` into a new picture in `target`.
    void colorTransform(std::shared_ptr<_ImageData>& target, std::shared_ptr<ColorProfile> profile, bool flag) const;
    /// Converts in place: no second picture.
    void convertTo(const std::shared_ptr<ColorProfile>& newProfile);

    /// For masks. Ignores the part of `rect` outside the picture.
    void fillRect(const float& value, _Rect<int> rect) requires std::same_as<T, float>;
    /// Clamps all samples to 0..1.
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
    /// As _ImageData::resize(), clamped to 0..1.
    [[nodiscard]] std::shared_ptr<MaskImage> resize(_Size<int> size, const _Rect<int>& rect, bool flag) const;
};

} // namespace orvo
