#include <orvo_extensions/document/destructive_processor.hpp>

#include <utility>

namespace orvo {

DestructiveProcessor::DestructiveProcessor(std::shared_ptr<ImageProvider> provider) : imageProvider(std::move(provider))
{}
DestructiveProcessor::~DestructiveProcessor() = default;
DestructiveProcessor::DestructiveProcessor(const DestructiveProcessor&) = default;
DestructiveProcessor& DestructiveProcessor::operator=(const DestructiveProcessor&) = default;

DestructiveImageProcessor::DestructiveImageProcessor(std::shared_ptr<ImageProvider> provider)
    : DestructiveProcessor(std::move(provider))
{}
DestructiveImageProcessor::~DestructiveImageProcessor() = default;
DestructiveImageProcessor::DestructiveImageProcessor(const DestructiveImageProcessor&) = default;
DestructiveImageProcessor& DestructiveImageProcessor::operator=(const DestructiveImageProcessor&) = default;

} // namespace orvo
