#include "GenProcessorBase/answer_file.hpp"
#include "GenProcessorBase/fit_to_limits.hpp"
#include "GenProcessorBase/loaded_document.hpp"

#include <orvo/composer.hpp>
#include <orvo_common/failure.hpp>
#include <orvo_extensions/generative_restoration.hpp>
#include <orvo_logger/logstream.hpp>

#include <algorithm>
#include <future>
#include <string>
#include <utility>
#include <vector>

namespace orvo {
namespace {

constexpr float kAnyAspect = -1.0f; // switches the aspect limit of fitToLimits() off

/// A candidate for a request, with its encoded text. Immutable.
struct GenRestorationData
{
    GenRestorationData(std::shared_ptr<const _ImageData<PixelRGB<float>>> picture,
                       const Base64EncodeParameters& encoding)
        : image(std::move(picture)), imageBase64(imageToBase64(image, encoding)), parameters(encoding)
    {}
    [[nodiscard]] std::shared_ptr<const GenRestorationData> resized(_Size<int> size) const
    {
        return std::make_shared<const GenRestorationData>(image->resize(size, {}, true), parameters);
    }

    const std::shared_ptr<const _ImageData<PixelRGB<float>>> image;
    const std::string imageBase64;
    const Base64EncodeParameters parameters;
};

/// `size`, or the largest size of its proportions within `most`.
_Size<int> shrunkTo(_Size<int> size, _Size<int> most)
{
    if (size.width <= most.width && size.height <= most.height)
        return size;
    const float scale = std::min(static_cast<float>(most.width) / static_cast<float>(size.width),
                                 static_cast<float>(most.height) / static_cast<float>(size.height));
    const auto side = [scale](int length) { return std::max(1, static_cast<int>(static_cast<float>(length) * scale)); };
    return {side(size.width), side(size.height)};
}

} // namespace

class GenRestorationProcessorImpl
{
public:
    std::filesystem::path path;
    StateSettings settings;
    std::filesystem::path presetsPath;
    GenRestorationProcessor::RequestRestrictions restrictions;
    Base64EncodeParameters encodeParameters{0, 8};

    /// The document on its canvas; empty if the file is not a picture.
    [[nodiscard]] std::unique_ptr<Composer> makeComposer() const
    {
        const LoadedDocument document(path);
        const _Size<int> size = ImageLoader::getSize(document.bytes);
        if (size == _Size<int>()) {
            document.stateNoPicture();
            return nullptr;
        }
        auto composer = std::make_unique<Composer>(size);
        if (settings.composition.empty())
            (void)composer->createLayer(document.bytes, BlendParameters{1.0f, 0}, ComposerScaleMode{});
        else
            composer->load(document.bytes, settings);
        if (!presetsPath.empty())
            composer->setBundlePresetsFolder(presetsPath);
        return composer;
    }

    [[nodiscard]] GenRestorationProcessor::Request request(const std::string& where) const
    {
        const auto composer = makeComposer();
        if (!composer) {
            LOG(__orvolog() << LogMessageType::Warning << where << ": "
                            << "Could not create composer");
            return {};
        }
        const CropDescription crop = composer->getCropDescription();
        const _Size<int> size = crop != CropDescription() ? crop.getCropRect().size() : composer->getCanvasSize();

        // The callback may run on another thread.
        const auto promise = std::make_shared<std::promise<RenderedData>>();
        std::future<RenderedData> rendered = promise->get_future();
        composer->generateDataForExport(shrunkTo(size, restrictions.maxSize),
                                        [promise](RenderedData data) { promise->set_value(std::move(data)); }, false,
                                        {}, {});
        const auto first = std::make_shared<const GenRestorationData>(rendered.get().image, encodeParameters);

        const auto data =
            fitToLimits<GenRestorationData>(first, restrictions.maxBase64Size, kAnyAspect,
                                            [](const GenRestorationData& d) { return d.imageBase64.size(); });
        if (data != first)
            LOG(__orvolog() << LogMessageType::Diagnostic
                            << "GenRestorationProcessor::generateRequest downscale to resolution: "
                            << data->image->width() << "x" << data->image->height()
                            << ", base64Size: " << data->imageBase64.size() << " to satisfy the size restriction");
        return {data->imageBase64, data->image->size()};
    }
};

GenRestorationProcessor::GenRestorationProcessor(const std::filesystem::path& path, const StateSettings& settings,
                                                 const std::filesystem::path& presetsPath)
    : impl(std::make_unique<GenRestorationProcessorImpl>())
{
    impl->path = path;
    impl->settings = settings;
    impl->presetsPath = presetsPath;
}

GenRestorationProcessor::~GenRestorationProcessor() = default;

void GenRestorationProcessor::setRequestRestrictions(const RequestRestrictions& restrictions)
{
    impl->restrictions = restrictions;
}

void GenRestorationProcessor::setEncodeParameters(const Base64EncodeParameters& parameters)
{
    impl->encodeParameters = parameters;
}

GenRestorationProcessor::Request GenRestorationProcessor::generateRequest()
{
    return details::keepingFailure([&, where = functionSignature()] { return impl->request(where); });
}

std::shared_ptr<_ImageData<PixelRGB<float>>> GenRestorationProcessor::applyResponse(const std::filesystem::path& file)
{
    return details::keepingFailure([&] {
        std::shared_ptr<_ImageData<PixelRGB<float>>> result;
        if (const auto data = loadAnswer(file))
            data->colorTransform(result, ColorProfileType::sRGB(), false);
        return result;
    });
}

} // namespace orvo
