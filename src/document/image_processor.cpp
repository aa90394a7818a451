#include <orvo/resource_manager.hpp>
#include <orvo_extensions/document/image_processor.hpp>

#include <utility>

namespace orvo {

ImageProcessor::ImageProcessor() = default;
ImageProcessor::~ImageProcessor() = default;

void ImageProcessor::setDumper(std::unique_ptr<ResourceManager> store) { dumper = std::move(store); }

} // namespace orvo
