#include "frame/upscale_ai.hpp"

#include "frame/call_frame.hpp"

#include <orvo/deblur_ai_effect.hpp>
#include <orvo_common/uuid.hpp>

namespace orvo {
namespace {

std::shared_ptr<Image> opened(const UpscaleSteps& steps, const std::filesystem::path& source,
                              const UpscaleAISettings& settings, const StateSettings& state,
                              const std::filesystem::path& statePath)
{
    const std::vector<unsigned char> bytes = ImageLoader::load(source);
    if (ImageLoader::getSize(bytes) == _Size<int>()) {
        details::stateLastFailure({FailureKind::UnreadableFile, source, "the picture cannot be read"});
        return {};
    }
    auto picture = open(bytes, state, statePath);
    if (!picture) {
        details::stateLastFailure({FailureKind::UnreadableFile, source, "the picture cannot be read"});
        return {};
    }
    const std::shared_ptr<ImageMetadata> metadata = copyMetadata(bytes);
    ImageLoader::dispose(bytes);
    auto upscaled = steps.upscale(picture, settings);
    picture.reset();
    if (!upscaled) {
        details::stateLastFailure({FailureKind::Internal, source, "upscaling returned no picture"});
        return {};
    }
    if (settings.faces)
        upscaled = steps.sharpenFaces(upscaled);
    metadata->size = upscaled->size();
    return CreateOrvoImage(upscaled, metadata);
}

} // namespace

UpscaleSteps UpscaleSteps::ofTheLibrary()
{
    UpscaleSteps steps;
    steps.upscale = [](const auto& picture, const UpscaleAISettings& settings) {
        return upscaleX(picture, settings, nullptr, nullptr, mlCacheInfo());
    };
    steps.sharpenFaces = [](const PicturePointer& picture) {
        return DeblurAIEffect::deblurFaces(generateUUID(), picture, 1.0f, true, true, nullptr);
    };
    return steps;
}

std::shared_ptr<Image> upscaleWith(const UpscaleSteps& steps, const std::filesystem::path& source,
                                   const UpscaleAISettings& settings, const StateSettings& state,
                                   const std::filesystem::path& statePath)
{
    return runInCallFrame("upscaleAI", [&] { return opened(steps, source, settings, state, statePath); });
}

// Passed by value, so that both are freed when it returns. NOLINTBEGIN(performance-unnecessary-value-param)
std::shared_ptr<Image> upscaleAI(const std::filesystem::path& source, const UpscaleAISettings& settings,
                                 StateSettings state, std::filesystem::path statePath)
{
    return upscaleWith(UpscaleSteps::ofTheLibrary(), source, settings, state, statePath);
}
// NOLINTEND(performance-unnecessary-value-param)

} // namespace orvo
