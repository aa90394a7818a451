#include "GenProcessorBase/answer_file.hpp"

#include <orvo/image_loader.hpp>
#include <orvo_core/identifier.hpp>

namespace orvo {

std::shared_ptr<_ImageData<PixelRGB<float>>> loadAnswer(const std::filesystem::path& file)
{
    const auto bytes = ImageLoader::load(file);
    const auto provider = ImageLoader::get(Identifier::deserialize(bytes));
    if (!provider)
        return nullptr;
    const auto image = provider->image();
    auto data = image ? image->imageData(image->size(), {}, true) : nullptr;
    ImageLoader::dispose(bytes);
    return data;
}

} // namespace orvo
