#include "codecs.hpp"

#include <orvo_common/run_control.hpp>
#include <orvo_common/wide_path.hpp>
#include <orvo_core/image.hpp>
#include <orvo_core/parallel.hpp>
#include <orvo_io/image_reader.hpp>
#include <orvo_io/picture_file.hpp>
#include <orvo_logger/logstream.hpp>

#include <algorithm>
#include <cmath>
#include <optional>
#include <vector>

namespace orvo {
namespace {

using io::ReadAnswer;
using io::ReadDepth;
using io::ReadFailure;
using io::ReadJob;
using io::RGBPicture;
using io::SourceFile;

const std::int64_t kUsualMaxPixels = ImageReadOptions().maxPixels;

void warn(const std::filesystem::path& path, const std::string& text)
{
    details::logWarning(pathText(path) + ": " + text);
}

// The failure of reading the file at `path` for the exception being handled.
Failure readFailure(const std::filesystem::path& path) noexcept
{
    Failure failure = failureOfException();
    if (failure.kind == FailureKind::Cancelled)
        return failure; // concerns no file
    try {
        failure.file = path;
        if (failure.kind == FailureKind::OutOfMemory)
            failure.sentence = "not enough memory for this picture";
        else if (failure.kind == FailureKind::Internal) // a codec's exception: the file is malformed
            failure.kind = FailureKind::UnreadableFile;
    } catch (...) {
        failure.kind = FailureKind::OutOfMemory;
    }
    return failure;
}

ReadAnswer readAny(const SourceFile& file, const ReadJob& job)
{
    switch (file.sniff()) {
    case io::FileKind::Jpeg:
        return io::readJpeg(file, job);
    case io::FileKind::Png:
        return io::readPng(file, job);
    case io::FileKind::WebP:
        return io::readWebP(file, job);
    case io::FileKind::Exr:
        return io::readExr(file, job);
    case io::FileKind::Heif:
        return io::readHeif(file, job);
    case io::FileKind::Raw:
        return io::readRaw(file, job);
    case io::FileKind::Tiff:
        // Most raw formats are based on TIFF.
        return io::librawKnows(file.path()) ? io::readRaw(file, job) : io::readTiff(file, job);
    case io::FileKind::Unknown:
        break;
    }
    throw ReadFailure("expected a picture file: " + file.describeBeginning());
}

// By its first bytes.
io::FileKind kindOf(const std::filesystem::path& path)
{
    try {
        return SourceFile(path).sniff();
    } catch (const FailureError&) { // it cannot be opened
        return io::FileKind::Unknown;
    }
}

// Runs `body`, which opens a file, as an exported call. An exception becomes the failure of the call, one line of the
// log unless it is a cancel, and an empty result.
template <typename Body>
auto guarded(const std::filesystem::path& path, const Body& body) -> decltype(body())
{
    details::CallScope scope;
    try {
        return body();
    } catch (...) {
        Failure failure = readFailure(path);
        if (failure.kind != FailureKind::Cancelled)
            LOG(__orvolog() << LogMessageType::Warning << pathText(path) << ": " << failure.sentence);
        scope.fail(std::move(failure));
    }
    return {};
}

// Side of the picture whose brightness is measured: enough for a mean, and a whole reduced JPEG of any camera.
constexpr int kMeasuredSide = 64;
// 14 bits below full scale: a black picture counts no darker than a camera's converter resolves.
constexpr float kDarkestMean = 1.0f / 16384.0f;

_Size<int> fittedSize(_Size<int> size, int side)
{
    const int longest = std::max(size.width, size.height);
    const auto scaled = [&](int length) {
        const auto rounded =
            (static_cast<std::int64_t>(length) * side * 2 + longest) / (2 * static_cast<std::int64_t>(longest));
        return std::max(1, static_cast<int>(rounded));
    };
    return {scaled(size.width), scaled(size.height)};
}

// log2 of the mean linear luminance.
float measuredOffset(const RGBPicture& picture)
{
    std::shared_ptr<RGBPicture> small;
    if (std::max(picture.width(), picture.height()) > kMeasuredSide)
        small = picture.resize(fittedSize(picture.size(), kMeasuredSide), {}, true);
    std::shared_ptr<RGBPicture> linear;
    (small ? *small : picture).colorTransform(linear, ColorProfileType::linearSRGB(), true);
    // Relative luminance of linear sRGB (ITU-R BT.709).
    double sum = 0.0;
    const PixelRGB<float>* const pixels = linear->data();
    for (std::size_t i = 0; i < linear->pixelCount(); ++i)
        sum += 0.2126 * pixels[i].r + 0.7152 * pixels[i].g + 0.0722 * pixels[i].b;
    const double mean = linear->pixelCount() > 0 ? sum / static_cast<double>(linear->pixelCount()) : 0.0;
    return static_cast<float>(std::log2(std::max(mean, static_cast<double>(kDarkestMean))));
}

// The preview in the file, if it shows the whole picture and is large enough.
std::shared_ptr<RGBPicture> previewOf(const ReadAnswer& header, const ReadJob& job)
{
    const auto& bytes = header.facts.preview;
    if (bytes.empty())
        return nullptr;
    try {
        const SourceFile file(bytes);
        if (file.sniff() != io::FileKind::Jpeg)
            return nullptr;
        ReadJob inner = job;
        inner.known = nullptr;
        inner.wantPreview = false;
        inner.orientation = header.facts.orientation;
        inner.assume = header.facts.record.isRaw ? nullptr : header.facts.record.fileProfile;
        if (inner.assume && inner.assume->channelCount() != 3)
            inner.assume = nullptr;
        inner.flags = static_cast<ImageReaderOpenFlag>(static_cast<std::int32_t>(ImageReaderOpenFlag::Upright) |
                                                       static_cast<std::int32_t>(ImageReaderOpenFlag::WorkingSpace) |
                                                       static_cast<std::int32_t>(ImageReaderOpenFlag::Complete));
        const _Size<int> whole = header.facts.record.size;
        inner.depth = ReadDepth::Facts;
        const _Size<int> own = io::readJpeg(file, inner).facts.record.size;
        constexpr double kSameShape = 0.02; // previews are rounded to whole blocks; others have black bars
        const double ratio =
            static_cast<double>(own.width) * whole.height / (static_cast<double>(own.height) * whole.width);
        if (std::max(own.width, own.height) < job.side || std::abs(ratio - 1.0) > kSameShape)
            return nullptr;
        inner.depth = ReadDepth::Reduced;
        return io::readJpeg(file, inner).picture;
    } catch (const ReadFailure&) {
        return nullptr; // broken preview: read the picture itself
    }
}

// An upright sRGB picture of at least `side`, if the file has that many pixels, with its facts.
struct Thumbnail
{
    std::shared_ptr<RGBPicture> picture;
    io::BlockFacts facts;
};

Thumbnail readThumbnail(const SourceFile& file, int side, const std::shared_ptr<const ImageMetadata>& known,
                        const RunControl& run)
{
    run.throwIfCancelled();
    ReadJob job;
    job.depth = ReadDepth::Facts;
    job.side = side;
    job.flags = static_cast<ImageReaderOpenFlag>(static_cast<std::int32_t>(ImageReaderOpenFlag::Upright) |
                                                 static_cast<std::int32_t>(ImageReaderOpenFlag::WorkingSpace) |
                                                 static_cast<std::int32_t>(ImageReaderOpenFlag::Embedded));
    job.target = ColorProfileType::sRGB();
    job.maxPixels = kUsualMaxPixels;
    job.known = known;
    job.run = &run;
    job.wantPreview = true;
    ReadAnswer header = readAny(file, job);
    run.throwIfCancelled();
    Thumbnail thumbnail;
    thumbnail.picture = previewOf(header, job);
    if (!thumbnail.picture) {
        job.depth = ReadDepth::Reduced;
        job.wantPreview = false;
        thumbnail.picture = readAny(file, job).picture;
    }
    run.throwIfCancelled();
    thumbnail.facts = std::move(header.facts);
    return thumbnail;
}

// Raw files are measured in linear light: their thumbnails are developed to look right at any exposure.
std::shared_ptr<RGBPicture> pictureToMeasure(const SourceFile& file, bool isRaw)
{
    if (!isRaw)
        return readThumbnail(file, kMeasuredSide, nullptr, RunControl::none()).picture;
    ReadJob job;
    job.depth = ReadDepth::Reduced;
    job.side = kMeasuredSide;
    job.flags = ImageReaderOpenFlag::Undeveloped;
    job.maxPixels = kUsualMaxPixels;
    return io::readRaw(file, job).picture;
}

// What a file states about its picture; empty if it cannot be read.
std::optional<io::BlockFacts> factsOf(const std::filesystem::path& path)
{
    try {
        const SourceFile file(path);
        ReadJob job;
        job.depth = ReadDepth::Facts;
        job.maxPixels = kUsualMaxPixels;
        return readAny(file, job).facts;
    } catch (const std::bad_alloc&) {
        throw;
    } catch (const std::exception&) {
        return {};
    }
}

} // namespace

ImageReader::ImageReader() = default;
ImageReader::~ImageReader() = default;

ImageReader& ImageReader::instance()
{
    class Shared final : public ImageReader
    {};
    static Shared reader;
    return reader;
}

std::shared_ptr<Image> ImageReader::open(const ImageReadRequest& request, const ImageReadOptions& options,
                                         ImageReaderOpenFlag flags, std::shared_ptr<const ImageMetadata> known,
                                         const std::string&, int index)
{
    return guarded(request.path, [&]() -> std::shared_ptr<Image> {
        ReadJob job;
        job.flags = flags;
        job.target = options.profile;
        job.keepsSRGB = options.keepsSRGB;
        job.maxPixels = options.maxPixels;
        job.known = known;
        job.part = request.part;
        job.index = index;
        ReadAnswer answer =
            request.memory != nullptr ? io::readMemory(*request.memory, job) : readAny(SourceFile(request.path), job);
        if (!answer.cutOff.empty())
            warn(request.path, answer.cutOff);
        // Brightness is measured unless time, aperture and sensitivity are all known; see readMetadata().
        if (!known && !answer.facts.record.hasExposure())
            answer.facts.record.exposureOffset = measuredOffset(*answer.picture);
        auto metadata = std::make_shared<const ImageMetadata>(std::move(answer.facts.record));
        return std::make_shared<Image>(ImageSource::owning(std::move(answer.picture), std::move(metadata), answer.raw));
    });
}

std::shared_ptr<const ImageMetadata> ImageReader::readMetadata(const std::filesystem::path& path)
{
    return guarded(path, [&]() -> std::shared_ptr<const ImageMetadata> {
        const SourceFile file(path);
        ReadJob job;
        job.depth = ReadDepth::Facts;
        job.maxPixels = kUsualMaxPixels;
        io::BlockFacts facts = readAny(file, job).facts;
        if (!facts.record.hasExposure()) {
            try {
                facts.record.exposureOffset = measuredOffset(*pictureToMeasure(file, facts.record.isRaw));
            } catch (const ReadFailure& failure) {
                // Only the bias is left to distinguish the frames of a series.
                facts.record.exposureOffset = facts.hasBias ? facts.record.exposureBias : 0.0f;
                warn(path, std::string("cannot measure its brightness: ") + failure.what());
            }
        }
        return std::make_shared<const ImageMetadata>(std::move(facts.record));
    });
}

std::shared_ptr<const ImageMetadata> ImageReader::readMetadata(const MemoryPicture& picture)
{
    return guarded(picture.name, [&]() -> std::shared_ptr<const ImageMetadata> {
        ReadJob job;
        job.depth = ReadDepth::Facts;
        job.maxPixels = kUsualMaxPixels;
        ImageMetadata record = io::readMemory(picture, job).facts.record;
        if (!record.hasExposure()) {
            job.depth = ReadDepth::Reduced;
            job.side = kMeasuredSide;
            job.target = ColorProfileType::sRGB();
            record.exposureOffset = measuredOffset(*io::readMemory(picture, job).picture);
        }
        return std::make_shared<const ImageMetadata>(std::move(record));
    });
}

bool ImageReader::getTemperatureAndTint(float& temperature, float& tint, const std::filesystem::path& path)
{
    const auto metadata = readMetadata(path);
    if (!metadata || !(metadata->temperature > 0.0f))
        return false;
    temperature = metadata->temperature;
    tint = metadata->tint;
    return true;
}

std::shared_ptr<_ImageData<PixelRGB<float>>> ImageReader::getThumbnailBySide(const std::filesystem::path& path,
                                                                             int side, bool flag,
                                                                             std::shared_ptr<const ImageMetadata> known,
                                                                             const std::function<bool()>& cancel)
{
    return guarded(path, [&]() -> std::shared_ptr<RGBPicture> {
        if (side < 1)
            throw ReadFailure("a thumbnail of side " + std::to_string(side) + " was requested, expected at least 1");
        const SourceFile file(path);
        std::shared_ptr<RGBPicture> picture = readThumbnail(file, side, known, RunControl(cancel)).picture;
        if (!flag || std::max(picture->width(), picture->height()) == side)
            return picture;
        return picture->resize(fittedSize(picture->size(), side), {}, true);
    });
}

bool isRawImageFile(const std::filesystem::path& path)
{
    try {
        const io::FileKind kind = SourceFile(path).sniff();
        return (kind == io::FileKind::Raw || kind == io::FileKind::Tiff) && io::librawKnows(path);
    } catch (const std::exception&) {
        return false;
    }
}

int sampleBitsOf(const std::filesystem::path& path)
{
    const auto facts = factsOf(path);
    return facts ? facts->sampleBits : 0;
}

_Size<int> pictureSizeOf(const std::filesystem::path& path)
{
    const auto facts = factsOf(path);
    return facts ? facts->record.size : _Size<int>();
}

bool beginsLikePicture(const std::filesystem::path& path) { return kindOf(path) != io::FileKind::Unknown; }

bool isJpegFile(const std::filesystem::path& path) { return kindOf(path) == io::FileKind::Jpeg; }

} // namespace orvo
