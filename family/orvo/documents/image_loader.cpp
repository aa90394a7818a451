#include <orvo/image_loader.hpp>
#include <orvo/raw_development.hpp>
#include <orvo_common/run_control.hpp>
#include <orvo_core/identifier.hpp>
#include <orvo_io/image_reader.hpp>
#include <orvo_io/picture_file.hpp>
#include <orvo_logger/logstream.hpp>

#include <cstdint>
#include <mutex>
#include <system_error>
#include <unordered_map>
#include <vector>

namespace orvo {
namespace {

// What shows that a file was written again. All zero for a file that is missing.
struct FileState
{
    std::uintmax_t size = 0;
    std::filesystem::file_time_type written;

    bool operator==(const FileState&) const = default;

    static FileState of(const std::filesystem::path& path)
    {
        std::error_code error;
        FileState state{std::filesystem::file_size(path, error), {}};
        if (!error)
            state.written = std::filesystem::last_write_time(path, error);
        return error ? FileState() : state;
    }
};

struct Document
{
    std::filesystem::path path;
    FileState state; // when it was loaded
    std::shared_ptr<const ImageMetadata> metadata;
    std::shared_ptr<ImageProvider> provider;
};

using Bytes = std::vector<unsigned char>;
using Key = std::shared_ptr<const Identifier>;

// Documents by identifier.
class Registry
{
public:
    static Registry& instance()
    {
        static Registry registry;
        return registry;
    }

    void add(const Key& key, Document document)
    {
        const std::lock_guard lock(mutex);
        documents.emplace(key, std::move(document));
    }

    // Returns a document without metadata for unknown bytes.
    [[nodiscard]] Document find(const Bytes& bytes) const { return find(Identifier::deserialize(bytes)); }

    [[nodiscard]] Document find(const Key& key) const
    {
        if (!key)
            return {};
        const std::lock_guard lock(mutex);
        const auto found = documents.find(key);
        return found != documents.end() ? found->second : Document();
    }

    void remove(const Bytes& bytes)
    {
        const Key key = Identifier::deserialize(bytes);
        if (!key)
            return;
        const std::lock_guard lock(mutex);
        documents.erase(key);
    }

    [[nodiscard]] std::size_t count() const
    {
        const std::lock_guard lock(mutex);
        return documents.size();
    }

private:
    mutable std::mutex mutex;
    std::unordered_map<Key, Document, Hasher, PredEqual> documents;
};

// The reason why a file that does not begin like a picture is rejected.
Failure noPicture(const std::filesystem::path& path)
{
    std::error_code error;
    const auto status = std::filesystem::status(path, error);
    const char* const sentence = !std::filesystem::exists(status) ? "there is no such file"
                                 : std::filesystem::is_directory(status)
                                     ? "expected a picture file, found a folder"
                                     : "expected a picture file, found something else";
    return {FailureKind::UnreadableFile, path, sentence};
}

void developRaw(PicturePointer& picture, const Image& image, const RunControl& run)
{
    const auto raw = image.getAdditionalRawMetadata();
    RawImageDevelop().develop(
        picture, picture, [&picture] { return toneThumbnail(*picture); }, image.metadata(),
        raw ? raw->getAutoDetectedTone() : 0.0f, 1.0f, {}, false, [&run] { return run.cancelled(); });
}

PicturePointer pictureOf(const Bytes& bytes, const RunControl& run)
{
    const Document document = Registry::instance().find(bytes);
    if (!document.metadata) {
        details::stateFailure({FailureKind::Internal, {}, "the bytes name no document"});
        return nullptr;
    }
    if (run.cancelled())
        return nullptr;
    const auto image =
        ImageReader::instance().open({document.path, {}}, {}, ImageReaderOpenFlag::Bracket, nullptr, {}, -1);
    // Size and metadata are those of the file that was loaded, and must be the pixels' own.
    if (FileState::of(document.path) != document.state) {
        ImageLoader::dispose(bytes);
        details::stateFailure({FailureKind::UnreadableFile, document.path,
                               "expected the file that was loaded, found that it has changed since"});
        return nullptr;
    }
    if (!image) {
        ImageLoader::dispose(bytes);
        details::stateLastFailure({FailureKind::UnreadableFile, document.path, "the picture cannot be read"});
        return nullptr;
    }
    PicturePointer picture = image->imageData({}, {}, true);
    if (document.metadata->isRaw)
        developRaw(picture, *image, run);
    return run.cancelled() ? nullptr : picture;
}

Bytes registered(const std::filesystem::path& path)
{
    if (!beginsLikePicture(path)) {
        details::stateFailure(noPicture(path));
        return {};
    }
    const FileState state = FileState::of(path); // before anything is read
    auto metadata = ImageReader::readMetadata(path);
    if (!metadata) {
        details::stateLastFailure(noPicture(path));
        return {};
    }
    if (metadata->isRaw) {
        auto developed = std::make_shared<ImageMetadata>(*metadata);
        developed->isDeveloped = true;
        metadata = std::move(developed);
    }
    const Key key = UUIDGenerator()();
    Bytes bytes;
    key->serialize(bytes);
    const auto openDocument = [bytes](const std::filesystem::path&) -> std::shared_ptr<Image> {
        const auto description = copyMetadata(bytes);
        const auto pixels = open(bytes, {}, {});
        return pixels ? CreateOrvoImage(pixels, description) : nullptr;
    };
    const auto provider = std::make_shared<ImageProvider>(path, metadata->isRaw, openDocument);
    Registry::instance().add(key, {path, state, std::move(metadata), provider});
    return bytes;
}

} // namespace

std::vector<unsigned char> ImageLoader::load(const std::filesystem::path& path)
{
    return details::keepingFailure([&] { return registered(path); });
}

_Size<int> ImageLoader::getSize(const std::vector<unsigned char>& bytes)
{
    const Document document = Registry::instance().find(bytes);
    return document.metadata ? document.metadata->size : _Size<int>();
}

std::shared_ptr<ImageProvider> ImageLoader::get(const std::shared_ptr<const Identifier>& identifier)
{
    return Registry::instance().find(identifier).provider;
}

std::size_t ImageLoader::documentCount() { return Registry::instance().count(); }

void ImageLoader::dispose(const std::vector<unsigned char>& bytes) { Registry::instance().remove(bytes); }

std::shared_ptr<const _ImageData<PixelRGB<float>>> open(const std::vector<unsigned char>& bytes,
                                                        const StateSettings& state, const std::filesystem::path&)
try {
    return details::keepingFailure([&]() -> PicturePointer {
        const RunControl run(state.canceled);
        if (!state.composition.empty() || !state.path.empty())
            details::logWarning(describe({FailureKind::Internal, Registry::instance().find(bytes).path,
                                          "opened as it is, without its saved state; openNoEmpty() applies one"}));
        auto picture = pictureOf(bytes, run);
        if (run.wasCancelled()) {
            ImageLoader::dispose(bytes); // as after any other failure: nobody else does
            details::stateFailure(cancelledFailure());
        }
        return picture;
    });
} catch (...) {
    ImageLoader::dispose(bytes);
    throw;
}

std::shared_ptr<ImageMetadata> copyMetadata(const std::vector<unsigned char>& bytes)
{
    const Document document = Registry::instance().find(bytes);
    return document.metadata ? std::make_shared<ImageMetadata>(*document.metadata) : nullptr;
}

} // namespace orvo
