/// The pixels of a rung, brought to its exposure only where they are looked at.
#pragma once

#include <orvo_common/memory_manager.hpp>
#include <orvo_core/pixel.hpp>
#include <orvo_image_processing/exposure_curve.hpp>

#include <memory>

namespace orvo {

/// A picture as an exposure curve shows it. A pass from top to bottom asks for a band of rows at a time, so that no
/// second picture is held for the sake of a curve that is quick to apply again. Looks at the pixels, which must outlive
/// it. One thread at a time; each call is itself parallel.
class RungPixels
{
public:
    /// The pixels as they are.
    RungPixels(const PixelRGB<float>* pixels, int width, int height);
    RungPixels(const PixelRGB<float>* pixels, int width, int height, const ExposureCurve& curve);

    /// From now on rows() hands out copies even where the curve changes nothing, so that who reads them may write the
    /// picture.
    void keepApart() { apart = true; }

    [[nodiscard]] int width() const { return columns; }
    [[nodiscard]] int height() const { return lines; }

    /// Rows that a pass should ask for at once: all where nothing has to be made.
    [[nodiscard]] int bandRows() const;

    /// Rows `first` to `end` - 1, one after another. Valid until the next call. Peak: these rows, unless the picture
    /// itself is handed out, as it is where the curve changes nothing. Throws std::bad_alloc.
    [[nodiscard]] const PixelRGB<float>* rows(int first, int end);

private:
    [[nodiscard]] bool handsOutSource() const { return exposure.isIdentity() && !apart; }

    const PixelRGB<float>* source;
    int columns;
    int lines;
    ExposureCurve exposure;
    bool apart = false;
    std::unique_ptr<ManagedPlane<PixelRGB<float>>> band;
    int bandCapacity = 0; // rows
};

} // namespace orvo
