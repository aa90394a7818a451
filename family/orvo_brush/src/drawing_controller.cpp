#include "brush_stroke.hpp"

#include <orvo_brush/drawing_controller.hpp>

#include <algorithm>
#include <cmath>
#include <optional>
#include <stdexcept>
#include <utility>

namespace orvo {
namespace {

// NaN becomes 0.
double limited(float value, double upper) { return value > 0.0f ? std::min(static_cast<double>(value), upper) : 0.0; }

constexpr double kLargestRadius = 1e6; // pixels: covers every mask

} // namespace

BaseBrushSettings::~BaseBrushSettings() = default;

RoundBrushSettings::~RoundBrushSettings() = default;

struct DrawingController::Drawing
{
    explicit Drawing(TiledMaskImage mask_) : mask(std::move(mask_)), base(mask) {}

    TiledMaskImage mask; // including the running stroke
    TiledMaskImage base; // without the running stroke
    std::optional<StrokeLayer> layer;
    StrokePath path;
    Brush brush;
    DrawingMode mode = DrawingMode::Draw;

    void endStroke()
    {
        layer.reset();
        base = mask;
    }
};

DrawingController::DrawingController(const _Size<int>& size_) : size(size_) {}

DrawingController::DrawingController(std::shared_ptr<TiledMaskImage> mask) : initial(std::move(mask))
{
    if (!initial)
        throw std::invalid_argument("DrawingController: no mask");
    size = initial->size();
}

DrawingController::~DrawingController() = default;

void DrawingController::initialize()
{
    held = std::make_unique<Drawing>(initial ? *initial : TiledMaskImage(size));
    initial.reset();
}

DrawingController::Drawing& DrawingController::drawing() const
{
    if (!held)
        throw std::logic_error("DrawingController: initialize() has not been called");
    return *held;
}

void DrawingController::startStroke()
{
    Drawing& d = drawing();
    d.endStroke();
    d.layer.emplace(size);
    d.path = {};
}

void DrawingController::stroke(const std::vector<_Point<float>>& points)
{
    Drawing& d = drawing();
    const bool own = !d.layer;
    if (own)
        startStroke();
    const auto stamp = [&d](double x, double y) { d.layer->stamp(x, y, d.brush, d.mode, d.base, d.mask); };
    for (const _Point<float>& point : points)
        d.path.advance(point, d.brush, size, stamp);
    if (own)
        finishStroke();
}

void DrawingController::finishStroke() { drawing().endStroke(); }

bool DrawingController::isStrokeInProgress() const { return drawing().layer.has_value(); }

void DrawingController::setRoundBrushSettings(float radius, float softness)
{
    Drawing& d = drawing();
    d.brush.radius = limited(radius, kLargestRadius);
    d.brush.softness = limited(softness, 1.0);
}

void DrawingController::setBrushOpacity(float opacity)
{
    drawing().brush.opacity = static_cast<float>(limited(opacity, 1.0));
}

void DrawingController::setDrawingMode(DrawingMode mode)
{
    Drawing& d = drawing();
    if (d.layer && mode != d.mode) {
        d.endStroke();
        d.layer.emplace(size);
    }
    d.mode = mode;
}

void DrawingController::fillMask(const float& value)
{
    Drawing& d = drawing();
    d.mask.fill(static_cast<float>(limited(value, 1.0)));
    d.base = d.mask;
    if (d.layer)
        d.layer.emplace(size);
}

std::shared_ptr<TiledMaskImage> DrawingController::getMask() const
{
    return std::make_shared<TiledMaskImage>(drawing().mask);
}

std::shared_ptr<const MaskImage> DrawingController::getMaskPreview(_Size<int> previewSize, const _Rect<int>& rect) const
{
    return drawing().mask.maskImage(previewSize, rect);
}

std::shared_ptr<const MaskImage> DrawingController::getMaskPreview(const ImageTransformSettings& settings) const
{
    const auto* const transform = std::get_if<AffineTransform>(&settings.transform);
    const _Rect<float>& part = settings.sourceRect;
    constexpr float kLargest = 1e9f; // fits an int
    const auto whole = [](float v) { return v == std::floor(v) && std::abs(v) <= kLargest; };
    if (transform == nullptr || *transform != AffineTransform() || !whole(part.x) || !whole(part.y) ||
        !whole(part.width) || !whole(part.height))
        throw std::invalid_argument("DrawingController::getMaskPreview: only whole pixels without a turn are offered");
    return getMaskPreview(settings.targetSize, {static_cast<int>(part.x), static_cast<int>(part.y),
                                                static_cast<int>(part.width), static_cast<int>(part.height)});
}

DrawingState DrawingController::getState() const { return {std::make_shared<const TiledMaskImage>(drawing().mask)}; }

void DrawingController::applyState(const DrawingState& state)
{
    Drawing& d = drawing();
    if (state.mask && state.mask->size() != size)
        throw std::invalid_argument("DrawingController::applyState: the state is of a mask of another size");
    d.endStroke();
    d.mask = state.mask ? *state.mask : TiledMaskImage(size);
    d.base = d.mask;
}

} // namespace orvo
