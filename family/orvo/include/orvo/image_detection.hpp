/// Local analysis of pictures, without a service.
#pragma once

#include <orvo_common/export.hpp>
#include <orvo_core/image.hpp>
#include <orvo_extensions/document/image_detection.hpp>

namespace orvo {

class ORVO_EXPORT ImageDetection final : public ImageDetectionPublicInterface
{
public:
    /// The tilt of the horizon in radians, clockwise: a crop turned by this angle has it level. From straight line
    /// segments (LSD: Grompone von Gioi, Jakubowicz, Morel, Randall, IPOL 2, 2012): those within 20 degrees of level or
    /// plumb vote by their length for a common direction. 0 if there are too few of them or `image` is empty. Usable
    /// from any thread. Peak: the picture at 1200 pixels.
    [[nodiscard]] float getAutoHorizonAngle(const Image* image) const;
};

} // namespace orvo
