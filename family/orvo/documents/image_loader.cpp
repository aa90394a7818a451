#include <orvo/image_loader.hpp>
#include <orvo/raw_development.hpp>
#include <orvo_common/run_control.hpp>
#include <orvo_core/identifier.hpp>
#include <orvo_io/image_reader.hpp>

#include <algorithm>
#include <array>
#include <fstream>
#include <mutex>
#include <string_view>
#include <system_error>
#include <unordered_map>
#include <vector>

namespace orvo {
namespace {

struct Document
{
    std::filesystem::path path;
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

private:
    mutable std::mutex mutex;
    std::unordered_map<Key, Document, Hasher, PredEqual> documents;
};

// Whether the file begins like a format of ImageReader. The reader logs every file that is not a picture, but here such
// files are expected.
bool beginsLikePicture(const std::filesystem::path& path)
{
    using namespace std::string_view_literals;
    std::error_code error;
    if (!std::filesystem::is_regular_file(path, error))
        return false;
    std::array<char, 16> first{};
    std::ifstream file(path, std::ios::binary);
    file.read(first.data(), first.size());
    const std::string_view text(first.data(), static_cast<std::size_t>(file.gcount()));
    const auto has = [text](std::size_t at, std::string_view mark) {
        return text.size() >= at + mark.size() && text.substr(at, mark.size()) == mark;
    };
    constexpr std::array kMarks = {
        "\xFF\xD8\xFF"sv, "\x89PNG\r\n\x1a\n"sv, "\x76\x2f\x31\x01"sv, "II*\0"sv, "MM\0*"sv, "II+\0"sv, "MM\0+"sv};
    // Videos also start with "ftyp", but with other brands.
    constexpr std::array kBrands = {"heic"sv, "heix"sv, "heim"sv, "heis"sv, "hevc"sv,
                                    "hevx"sv, "mif1"sv, "msf1"sv, "avif"sv, "avis"sv};
    return std::any_of(kMarks.begin(), kMarks.end(), [&](std::string_view mark) { return has(0, mark); }) ||
           (has(0, "RIFF"sv) && has(8, "WEBP"sv)) ||
           (has(4, "ftyp"sv) &&
            std::any_of(kBrands.begin(), kBrands.end(), [&](std::string_view brand) { return has(8, brand); })) ||
           isRawImageFile(path);
}

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
    Registry::instance().add(key, {path, std::move(metadata), provider});
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

void ImageLoader::dispose(const std::vector<unsigned char>& bytes) { Registry::instance().remove(bytes); }

std::shared_ptr<const _ImageData<PixelRGB<float>>> open(const std::vector<unsigned char>& bytes,
                                                        const StateSettings& state, const std::filesystem::path&)
try {
    return details::keepingFailure([&]() -> PicturePointer {
        const RunControl run(state.canceled);
        auto picture = pictureOf(bytes, run);
        if (run.wasCancelled())
            details::stateFailure(cancelledFailure());
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
