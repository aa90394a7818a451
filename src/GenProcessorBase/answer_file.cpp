#include "GenProcessorBase/answer_file.hpp"

#include <orvo/image_loader.hpp>
#include <orvo_common/failure.hpp>
#include <orvo_core/identifier.hpp>

#include <utility>
#include <vector>

namespace orvo {
namespace {

// Disposes of a document at the end of a scope, so that an exception does not leave its picture in memory.
struct Disposal
{
    explicit Disposal(const std::vector<unsigned char>& document) : bytes(document) {}
    ~Disposal() { ImageLoader::dispose(bytes); }
    Disposal(const Disposal&) = delete;
    Disposal& operator=(const Disposal&) = delete;

    const std::vector<unsigned char>& bytes;
};

} // namespace

std::shared_ptr<_ImageData<PixelRGB<float>>> loadAnswer(const std::filesystem::path& file)
{
    const auto bytes = ImageLoader::load(file);
    auto failure = lastFailure();
    const auto provider = ImageLoader::get(Identifier::deserialize(bytes));
    if (!provider) {
        details::stateFailure(
            std::move(failure).value_or(Failure{FailureKind::UnreadableFile, file, "the file is not a picture"}));
        return nullptr;
    }
    const Disposal disposal(bytes);
    const auto image = provider->image();
    return image ? image->imageData(image->size(), {}, true) : nullptr;
}

} // namespace orvo
