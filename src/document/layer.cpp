#include <orvo_extensions/document/layer.hpp>
#include <orvo_extensions/document/processor_adaptor.hpp>

namespace orvo {

Layer::Layer(const ProcessConfig& settings) : config(settings) {}
Layer::~Layer() = default;
Layer::Layer(const Layer&) = default;
Layer& Layer::operator=(const Layer&) = default;

std::shared_ptr<const Identifier> Layer::getBaseUUID() const
{
    return adaptor != nullptr ? adaptor->getBaseUUID() : nullptr;
}

void Layer::setClearCache(bool clear)
{
    if (adaptor != nullptr)
        adaptor->setClearCache(clear);
}

} // namespace orvo
