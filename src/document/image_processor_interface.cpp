#include <orvo_extensions/document/image_processor_interface.hpp>

namespace orvo {

ImageProcessorInterface::~ImageProcessorInterface() = default;

int ImageProcessorInterface::getCurrentPersonIndex() const { return 0; }

std::string ImageProcessorInterface::getFirstCurrentEffectID() const { return {}; }

void ImageProcessorInterface::resetAllLayers() {}

iCacheProcessor::~iCacheProcessor() = default;

} // namespace orvo
