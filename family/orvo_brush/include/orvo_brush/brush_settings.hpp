/// Settings of a brush.
#pragma once

#include <orvo_common/export.hpp>

#include <cstdint>

/// The effect of strokes on a mask.
enum class DrawingMode : std::int32_t
{
    Draw = 0,
    Erase = 1,
};

namespace orvo {

enum class BrushSettingsType : std::int32_t
{
    Round = 0,
};

class ORVO_EXPORT BaseBrushSettings
{
public:
    virtual ~BaseBrushSettings();
    [[nodiscard]] virtual BrushSettingsType getType() const = 0;
};

/// A round brush. Values are clamped to their ranges on use; NaN counts as 0.
class ORVO_EXPORT RoundBrushSettings : public BaseBrushSettings
{
public:
    RoundBrushSettings() = default;
    RoundBrushSettings(float radius_, float softness_, float opacity_)
        : radius(radius_), softness(softness_), opacity(opacity_)
    {}
    ~RoundBrushSettings() override;

    [[nodiscard]] BrushSettingsType getType() const override { return BrushSettingsType::Round; }
    /// In pixels of the mask; 0 draws nothing.
    [[nodiscard]] float getRadius() const { return radius; }
    /// Share of the radius over which the rim fades, 0..1. A hard rim fades over one pixel.
    [[nodiscard]] float getSoftness() const { return softness; }
    /// The most a stroke reaches, 0..1.
    [[nodiscard]] float getOpacity() const { return opacity; }

private:
    float radius = 0.0f;
    float softness = 0.0f;
    float opacity = 0.0f;
};

} // namespace orvo
