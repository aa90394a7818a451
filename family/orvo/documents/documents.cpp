#include <orvo/documents.hpp>
#include <orvo_common/wide_path.hpp>
#include <orvo_logger/logstream.hpp>

#include <memory>
#include <stdexcept>

namespace orvo {
namespace {

// Disposes of a document at the end of a scope.
class LoadedDocument
{
public:
    explicit LoadedDocument(const std::filesystem::path& path) : bytes(ImageLoader::load(path)) {}
    ~LoadedDocument() { ImageLoader::dispose(bytes); }
    LoadedDocument(const LoadedDocument&) = delete;
    LoadedDocument& operator=(const LoadedDocument&) = delete;

    const std::vector<unsigned char> bytes;
};

// The picture with its composition applied; empty, with a log line, if that fails.
std::shared_ptr<Image> composed(const LoadedDocument& document, const StateSettings& settings,
                                const std::filesystem::path& path, const std::filesystem::path& presetsPath)
try {
    const auto composer = std::make_shared<Composer>(ImageLoader::getSize(document.bytes));
    composer->load(document.bytes, settings);
    if (!presetsPath.empty())
        composer->setBundlePresetsFolder(presetsPath);
    return exportFromComposer(composer);
} catch (const std::exception& error) {
    LOG(__orvolog() << LogMessageType::Warning << pathText(path)
                    << ": its saved state cannot be applied: " << error.what());
    return nullptr;
}

} // namespace

std::shared_ptr<Image> openNoEmpty(const std::filesystem::path& path, const StateSettings& settings,
                                   const std::filesystem::path& presetsPath)
{
    const LoadedDocument document(path);
    if (ImageLoader::getSize(document.bytes) == _Size<int>())
        throw std::runtime_error(pathText(path) + " cannot be opened as a picture");
    StateSettings remaining = settings;
    if (!settings.composition.empty()) {
        if (auto image = composed(document, settings, path, presetsPath))
            return image;
        remaining = {{}, settings.canceled, {}}; // the failure is logged already
    }
    const auto metadata = copyMetadata(document.bytes);
    const auto pixels = open(document.bytes, remaining, presetsPath);
    if (!pixels)
        throw std::runtime_error(pathText(path) + " cannot be opened as a picture");
    return CreateOrvoImage(pixels, metadata);
}

std::shared_ptr<Image> exportFromComposer(const std::shared_ptr<Composer>& composer)
{
    if (!composer)
        throw std::invalid_argument("exportFromComposer: there is no composition");
    RenderedData rendered;
    composer->generateDataForExport({}, [&](RenderedData data) { rendered = std::move(data); }, false, {}, {});
    if (!rendered.image)
        throw std::runtime_error("exportFromComposer: the composition has no picture");
    const auto source = composer->metadata();
    const auto metadata = source ? std::make_shared<ImageMetadata>(*source) : std::make_shared<ImageMetadata>();
    metadata->size = rendered.image->size();
    return CreateOrvoImage(rendered.image, metadata);
}

} // namespace orvo
