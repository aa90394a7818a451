/// The pixels of a rung, shifted to its exposure on demand.
#pragma once

#include <orvo_core/pixel.hpp>
#include <orvo_extensions/hdr.hpp>
#include <orvo_image_processing/exposure_curve.hpp>

#include <cstddef>

namespace orvo {

/// The exposure curve of a rung, and how it treats colours near white.
class RungCurve
{
public:
    RungCurve(const ExposureCurve& exposure, HighlightHue highlightHue) : curve(exposure), hue(highlightHue) {}

    [[nodiscard]] bool isIdentity() const { return curve.isIdentity(); }
    void applyInPlace(PixelRGB<float>* pixels, std::size_t count) const;
    /// On the calling thread. `to` may be `from`.
    void apply(const PixelRGB<float>* from, PixelRGB<float>* to, std::size_t count) const;

private:
    ExposureCurve curve;
    HighlightHue hue;
};

/// A picture seen through an exposure curve. Rows are computed as they are read, so that no second picture is kept for
/// a curve that is quick to apply again. Refers to the pixels, which must outlive it. Any thread.
class RungPixels
{
public:
    /// The pixels as they are.
    RungPixels(const PixelRGB<float>* pixels, int width, int height);
    RungPixels(const PixelRGB<float>* pixels, int width, int height, const RungCurve& curve);

    /// From now on rows() returns copies even if the curve changes nothing, so that the reader may write the picture.
    void keepApart() { apart = true; }

    [[nodiscard]] int width() const { return columns; }
    [[nodiscard]] int height() const { return lines; }

    /// Rows `first` to `end` - 1, contiguous: computed into `scratch`, which has room for them, or the picture's own if
    /// the curve changes nothing.
    [[nodiscard]] const PixelRGB<float>* rows(int first, int end, PixelRGB<float>* scratch) const;

private:
    const PixelRGB<float>* source;
    int columns;
    int lines;
    RungCurve exposure;
    bool apart = false;
};

} // namespace orvo
