#include <orvo_extensions/panorama.hpp>

namespace orvo {

// Out of line, so that the exported record has exported members.
PanoramaStitchingSettings::PanoramaStitchingSettings() = default;
PanoramaStitchingSettings::PanoramaStitchingSettings(const PanoramaStitchingSettings&) = default;
PanoramaStitchingSettings::PanoramaStitchingSettings(PanoramaStitchingSettings&&) noexcept = default;
PanoramaStitchingSettings& PanoramaStitchingSettings::operator=(const PanoramaStitchingSettings&) = default;
PanoramaStitchingSettings& PanoramaStitchingSettings::operator=(PanoramaStitchingSettings&&) noexcept = default;

} // namespace orvo
