/// Interface of detectors of objects in pictures.
#pragma once

#include <orvo_common/export.hpp>

namespace orvo {

/// Abstract. A detector derives from it and adds its results.
class ORVO_EXPORT ImageDetectionPublicInterface
{
public:
    virtual ~ImageDetectionPublicInterface() = 0;

protected:
    ImageDetectionPublicInterface() = default;
    ImageDetectionPublicInterface(const ImageDetectionPublicInterface&) = default;
    ImageDetectionPublicInterface& operator=(const ImageDetectionPublicInterface&) = default;
};

} // namespace orvo
