/// Paints a mask with strokes.
#pragma once

#include <orvo_brush/brush_settings.hpp>
#include <orvo_common/export.hpp>
#include <orvo_core/geometry.hpp>
#include <orvo_image_processing/image_transform.hpp>
#include <orvo_image_processing/tiled_mask_image.hpp>

#include <memory>
#include <vector>

namespace orvo {

/// A snapshot of a mask. Copies share its tiles.
struct ORVO_EXPORT DrawingState
{
    std::shared_ptr<const TiledMaskImage> mask; ///< empty: nothing drawn (the default)
};

/// A mask painted with a brush.
///
/// A stroke sets round stamps along the line through its points, a quarter of the radius apart. Overlapping stamps of
/// one stroke take the maximum, so a stroke never exceeds its opacity, however slowly it is drawn; separate strokes add
/// up. The same points give the same mask in one batch or in many. Points are in pixels: the centre of the first pixel
/// is (0.5, 0.5). Points that are NaN or a hundred million pixels away are skipped.
///
/// Only tiles touched by a stamp cost memory and time. Masks passed in and returned share tiles with the one being
/// drawn (copy on write), so they never change. One thread at a time. Every method except the constructors throws
/// std::logic_error before initialize().
///
/// Example:
///   DrawingController controller(_Size<int>(6000, 4000));
///   controller.initialize();
///   controller.setRoundBrushSettings(40.0f, 0.5f);
///   controller.setBrushOpacity(1.0f);
///   controller.startStroke();
///   controller.stroke({{100, 100}, {300, 120}});
///   controller.finishStroke();
class ORVO_EXPORT DrawingController
{
public:
    /// Starts from an empty mask.
    explicit DrawingController(const _Size<int>& size);
    /// Starts from `mask`, which is not changed.
    explicit DrawingController(std::shared_ptr<TiledMaskImage> mask);
    ~DrawingController();
    DrawingController(const DrawingController&) = delete;
    DrawingController& operator=(const DrawingController&) = delete;

    void initialize();

    /// Ends a running stroke first.
    void startStroke();
    /// Adds points to the stroke. Outside of a stroke the points form their own stroke.
    void stroke(const std::vector<_Point<float>>& points);
    void finishStroke();
    [[nodiscard]] bool isStrokeInProgress() const;
    [[nodiscard]] _Size<int> maskSize() const { return size; }

    /// Applies to later points. A larger brush takes effect from the last point on, not back along the line.
    void setRoundBrushSettings(float radius, float softness);
    void setBrushOpacity(float opacity);
    /// Splits a running stroke in two.
    void setDrawingMode(DrawingMode mode);

    /// Sets the whole mask, including a running stroke, to `value`, clamped to 0..1.
    void fillMask(const float& value);

    /// The current mask, including a running stroke.
    [[nodiscard]] std::shared_ptr<TiledMaskImage> getMask() const;
    /// The part `rect` of the current mask at `previewSize` (TiledMaskImage::maskImage()).
    [[nodiscard]] std::shared_ptr<const MaskImage> getMaskPreview(_Size<int> previewSize, const _Rect<int>& rect) const;
    /// The same for settings in whole pixels without rotation; throws std::invalid_argument on others.
    [[nodiscard]] std::shared_ptr<const MaskImage> getMaskPreview(const ImageTransformSettings& settings) const;

    [[nodiscard]] DrawingState getState() const;
    /// Ends a running stroke and replaces the mask by the state's; keeps brush and mode. Throws std::invalid_argument
    /// on a state of another size.
    void applyState(const DrawingState& state);

private:
    struct Drawing;
    [[nodiscard]] Drawing& drawing() const;

    _Size<int> size;
    std::shared_ptr<TiledMaskImage> initial;
    std::unique_ptr<Drawing> held;
};

} // namespace orvo
