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

/// A mask at one moment. Copying it shares the mask's tiles.
struct ORVO_EXPORT DrawingState
{
    std::shared_ptr<const TiledMaskImage> mask; ///< empty: nothing drawn, as a default state is
};

/// A mask under the brush.
///
/// A stroke sets round stamps along the line through its points, a quarter of the radius apart. Where stamps of one
/// stroke overlap the strongest counts, so that a stroke reaches its opacity and no more, however slowly it is drawn;
/// strokes upon each other add up. The same points give the same mask, in one batch or in many. Points are pixels: the
/// centre of the first one is (0.5, 0.5). Points that are no numbers, or a hundred million pixels away, are left out.
///
/// Only the tiles that a stamp touches cost anything. Masks that are given and taken share their tiles with the one
/// being drawn, which copies a tile when it writes to it, so that none of them changes. Belongs to one thread at a
/// time. Every method but the constructors throws std::logic_error before initialize().
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
    /// An empty mask of that size.
    explicit DrawingController(const _Size<int>& size);
    /// Goes on from `mask`, which stays as it is.
    explicit DrawingController(std::shared_ptr<TiledMaskImage> mask);
    ~DrawingController();
    DrawingController(const DrawingController&) = delete;
    DrawingController& operator=(const DrawingController&) = delete;

    void initialize();

    /// Ends a stroke under way first.
    void startStroke();
    /// The next points of the stroke. Outside of a stroke the points are a stroke of their own.
    void stroke(const std::vector<_Point<float>>& points);
    void finishStroke();
    [[nodiscard]] bool isStrokeInProgress() const;
    [[nodiscard]] _Size<int> maskSize() const { return size; }

    /// For the points that come. A larger brush counts from the last point on, not back along the line.
    void setRoundBrushSettings(float radius, float softness);
    void setBrushOpacity(float opacity);
    /// A stroke under way goes on as a new one.
    void setDrawingMode(DrawingMode mode);

    /// Sets the whole mask, the stroke under way included, to a value, which is limited to 0..1.
    void fillMask(const float& value);

    /// The mask as it stands, a stroke under way included.
    [[nodiscard]] std::shared_ptr<TiledMaskImage> getMask() const;
    /// The same, the part `rect` at `size` (TiledMaskImage::maskImage()).
    [[nodiscard]] std::shared_ptr<const MaskImage> getMaskPreview(_Size<int> previewSize, const _Rect<int>& rect) const;
    /// The same for settings of whole pixels and without a turn; others are refused with std::invalid_argument.
    [[nodiscard]] std::shared_ptr<const MaskImage> getMaskPreview(const ImageTransformSettings& settings) const;

    [[nodiscard]] DrawingState getState() const;
    /// Ends a stroke under way and puts the state's mask in place of what is drawn; brush and mode stay. Throws
    /// std::invalid_argument on a state of another size.
    void applyState(const DrawingState& state);

private:
    struct Drawing;
    [[nodiscard]] Drawing& drawing() const;

    _Size<int> size;
    std::shared_ptr<TiledMaskImage> initial;
    std::unique_ptr<Drawing> held;
};

} // namespace orvo
