#include "frame/upscale_ai.hpp"

#include "frame/call_frame.hpp"
#include "frame/performed.hpp"

#include <orvo/deblur_ai_effect.hpp>
#include <orvo_common/part_progress.hpp>
#include <orvo_common/uuid.hpp>
#include <orvo_io/image_reader.hpp>

#include <cmath>

namespace orvo {
namespace {

constexpr float kOpened = 0.05f; // share of the time

// The share of the time after which faces are looked for in an enlarged picture. The filters take time for each pixel;
// the search works on a reduced copy, in the time of about so many pixels.
float enlargedShare(double pixels)
{
    constexpr double kSearchPixels = 40e6;
    return static_cast<float>(kOpened + (1.0 - kOpened) * pixels / (pixels + kSearchPixels));
}

struct Opened
{
    std::shared_ptr<const _ImageData<PixelRGB<float>>> picture; // empty if it cannot be opened
    std::shared_ptr<ImageMetadata> metadata;
};

Opened openedDocument(const std::filesystem::path& source, const StateSettings& state,
                      const std::filesystem::path& statePath)
{
    const std::vector<unsigned char> bytes = ImageLoader::load(source);
    if (ImageLoader::getSize(bytes) == _Size<int>())
        return {};
    Opened document{open(bytes, state, statePath), copyMetadata(bytes)};
    if (document.picture)
        ImageLoader::dispose(bytes);
    return document;
}

Opened openedInput(const PictureInput& input, const RunControl& run)
{
    if (input.memory() == nullptr)
        return openedDocument(input.path(), {{}, [&run] { return run.cancelled(); }, {}}, {});
    const auto known = ImageReader::readMetadata(*input.memory());
    if (!known)
        return {};
    const auto image = ImageReader::instance().open({input.path(), {}, input.memory()}, {},
                                                    ImageReaderOpenFlag::Bracket, known, {}, -1);
    if (!image)
        return {};
    return {image->imageData({}, {}, true), std::make_shared<ImageMetadata>(*known)};
}

// `source` is for messages.
std::shared_ptr<Image> enlarged(const UpscaleSteps& steps, Opened document, const std::filesystem::path& source,
                                const UpscaleAISettings& settings, const RunControl& run)
{
    if (!document.picture) {
        details::stateLastFailure({FailureKind::UnreadableFile, source, "the picture cannot be read"});
        return {};
    }
    run.report(kOpened);
    auto upscaled = steps.upscale(document.picture, settings);
    document.picture.reset();
    if (!upscaled) {
        details::stateLastFailure({FailureKind::Internal, source, "upscaling returned no picture"});
        return {};
    }
    if (settings.faces)
        upscaled = steps.sharpenFaces(upscaled);
    if (!upscaled) // cancelled
        return {};
    document.metadata->size = upscaled->size();
    return CreateOrvoImage(upscaled, document.metadata);
}

} // namespace

UpscaleSteps UpscaleSteps::ofTheLibrary(const RunControl& run)
{
    UpscaleSteps steps;
    steps.upscale = [&run](const auto& picture, const UpscaleAISettings& settings) {
        const double pixels = std::ldexp(static_cast<double>(picture->pixelCount()), 2 * settings.passes);
        return upscaleX(picture, settings, nullptr, partOf(run, kOpened, settings.faces ? enlargedShare(pixels) : 1.0f),
                        mlCacheInfo());
    };
    steps.sharpenFaces = [&run](const PicturePointer& picture) {
        const float begin = enlargedShare(static_cast<double>(picture->pixelCount()));
        return DeblurAIEffect::withDeblurredFaces(generateUUID(), picture, 1.0f, true, true, partOf(run, begin, 1.0f));
    };
    return steps;
}

std::shared_ptr<Image> upscaleWith(const UpscaleSteps& steps, const std::filesystem::path& source,
                                   const UpscaleAISettings& settings, const StateSettings& state,
                                   const std::filesystem::path& statePath)
{
    return runInCallFrame("upscaleAI", [&] {
        return enlarged(steps, openedDocument(source, state, statePath), source, settings, RunControl::none());
    });
}

// Passed by value, so that both are freed when it returns. NOLINTBEGIN(performance-unnecessary-value-param)
std::shared_ptr<Image> upscaleAI(const std::filesystem::path& source, const UpscaleAISettings& settings,
                                 StateSettings state, std::filesystem::path statePath)
{
    return upscaleWith(UpscaleSteps::ofTheLibrary(), source, settings, state, statePath);
}
// NOLINTEND(performance-unnecessary-value-param)

OperationResult perform(const UpscaleRequest& request)
{
    return details::performed<OperationResult>(
        "upscaleAI", request, [&](const RunControl& run, OperationResult& result) {
            result.image = enlarged(UpscaleSteps::ofTheLibrary(run), openedInput(request.picture, run),
                                    request.picture.path(), request.settings, run);
        });
}

} // namespace orvo
