/// The look of a watermark.
#pragma once

#include <orvo_common/export.hpp>

#include <cstdint>

namespace orvo {

/// Kept for the application (docs/kept_fields.md), which draws watermarks itself and defines units and meanings. A
/// plain record.
struct ORVO_EXPORT WatermarkSettings
{
    WatermarkSettings();
    WatermarkSettings(const WatermarkSettings&) = default;
    WatermarkSettings(WatermarkSettings&&) noexcept = default;
    WatermarkSettings& operator=(const WatermarkSettings&) = default;
    WatermarkSettings& operator=(WatermarkSettings&&) noexcept = default;

    float size = 5.0f;
    std::int32_t kind = 0;
    std::int32_t style = 0;
    float opacity = 80.0f;
    std::int32_t rotation = 0;
    std::int32_t place = 6;
};

} // namespace orvo
