#include <orvo_extensions/watermark.hpp>

namespace orvo {

WatermarkSettings::WatermarkSettings() = default;

} // namespace orvo
