#include "GenProcessorBase/answer_file.hpp"

#include "GenProcessorBase/loaded_document.hpp"

#include <orvo_core/identifier.hpp>

namespace orvo {

std::shared_ptr<_ImageData<PixelRGB<float>>> loadAnswer(const std::filesystem::path& file)
{
    const LoadedDocument document(file);
    const auto provider = ImageLoader::get(Identifier::deserialize(document.bytes));
    if (!provider) {
        document.stateNoPicture();
        return nullptr;
    }
    const auto image = provider->image();
    return image ? image->imageData(image->size(), {}, true) : nullptr;
}

} // namespace orvo
