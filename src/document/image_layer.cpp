#include <orvo_extensions/document/image_layer.hpp>

namespace orvo {

ImageLayer::ImageLayer(const ProcessConfig& settings) : Layer(settings) {}
ImageLayer::~ImageLayer() = default;
ImageLayer::ImageLayer(const ImageLayer&) = default;
ImageLayer& ImageLayer::operator=(const ImageLayer&) = default;

Transforms ImageLayer::getLensCorrectionOperations() const
{
    Transforms operations;
    for (const auto& transformation : {lensCorrection.distortion, lensCorrection.chromaticAberration})
        if (transformation)
            operations.push_back(transformation);
    return operations;
}

} // namespace orvo
