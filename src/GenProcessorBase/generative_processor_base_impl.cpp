#include "GenProcessorBase/generative_processor_base_impl.hpp"

#include <utility>

namespace orvo {
namespace {

constexpr std::size_t kCaches = 2; // modified and unedited

} // namespace

GenerativeProcessorBaseImpl::WorkingImage::~WorkingImage() = default;

GenerativeProcessorBaseImpl::GenerativeProcessorBaseImpl(std::shared_ptr<Image> source)
    : image(std::move(source)), canvasSize(image ? image->size() : _Size<int>()),
      caches(std::make_shared<std::vector<RenderCache>>(kCaches)),
      requestParameters(std::make_shared<RequestParameters>()),
      callbackQueue(std::make_shared<opq::OperationQueue>(opq::OperationQueue::Type::Delivery))
{}

GenerativeProcessorBaseImpl::~GenerativeProcessorBaseImpl() = default;

std::shared_ptr<PostRenderDataI> GenerativeProcessorBaseImpl::postRenderData() { return nullptr; }

} // namespace orvo
