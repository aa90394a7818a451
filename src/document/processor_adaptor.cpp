#include <orvo_extensions/document/processor_adaptor.hpp>

namespace orvo {

ProcessorAdaptor::ProcessorAdaptor(std::shared_ptr<const Identifier> base) : baseUUID(std::move(base)) {}
ProcessorAdaptor::~ProcessorAdaptor() = default;
ProcessorAdaptor::ProcessorAdaptor(const ProcessorAdaptor&) = default;
ProcessorAdaptor& ProcessorAdaptor::operator=(const ProcessorAdaptor&) = default;

std::shared_ptr<_ImageData<float>> ProcessorAdaptor::getMaskPreview(const ResizeParameters&) { return {}; }

} // namespace orvo
