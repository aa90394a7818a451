#include <orvo_extensions/document/base_layer.hpp>

namespace orvo {

BaseLayer::BaseLayer() = default;
BaseLayer::~BaseLayer() = default;
BaseLayer::BaseLayer(const BaseLayer&) = default;
BaseLayer& BaseLayer::operator=(const BaseLayer&) = default;

float BaseLayer::defaultMaskValue() const { return 1.0f; }

void BaseLayer::setBaseImage(std::shared_ptr<const _ImageData<PixelRGB<float>>>) {}

std::shared_ptr<const _ImageData<PixelRGB<float>>> BaseLayer::getBaseImage() const { return {}; }

void BaseLayer::preProcess(std::shared_ptr<PreProcessInfo>&, std::vector<Effect*>&) {}

void BaseLayer::preProcessReset(std::shared_ptr<PreProcessInfo>&) {}

void BaseLayer::cleanEditsCache() {}

} // namespace orvo
