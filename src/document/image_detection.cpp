#include <orvo_extensions/document/image_detection.hpp>

namespace orvo {

ImageDetectionPublicInterface::~ImageDetectionPublicInterface() = default;

} // namespace orvo
