#include "metadata.hpp"

#include <orvo_io/capture_facts.hpp>
#include <orvo_io/capture_time.hpp>

#include <exiv2/exiv2.hpp>

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <mutex>
#include <optional>
#include <string_view>

namespace orvo::io {
namespace {

// Exiv2 has global registries (XMP name spaces, makers) that it changes while it reads, so only one thread reads at a
// time: a fraction of a millisecond for a picture.
std::mutex& exivMutex()
{
    static std::mutex mutex;
    return mutex;
}

[[nodiscard]] std::unique_lock<std::mutex> enterExiv()
{
    std::unique_lock<std::mutex> lock(exivMutex());
    static const bool ready = [] {
        Exiv2::LogMsg::setLevel(Exiv2::LogMsg::mute);
        Exiv2::XmpParser::initialize();
        Exiv2::enableBMFF(true);
        return true;
    }();
    (void)ready;
    return lock;
}

constexpr std::size_t kLargestKept = 16u << 20; // bytes of a kept block; real ones have kilobytes

class Tags
{
public:
    explicit Tags(const Exiv2::ExifData& data_) : data(data_) {}

    [[nodiscard]] const Exiv2::Exifdatum* find(const char* key) const
    {
        const auto found = data.findKey(Exiv2::ExifKey(key));
        return found == data.end() || found->count() < 1 ? nullptr : &*found;
    }

    [[nodiscard]] const Exiv2::ExifData& all() const { return data; }

    // A finite number; 0 / 0 and the like count as missing.
    [[nodiscard]] std::optional<double> number(const char* key) const
    {
        const Exiv2::Exifdatum* const datum = find(key);
        if (datum == nullptr)
            return std::nullopt;
        const Exiv2::TypeId type = datum->typeId();
        double value = 0.0;
        if (type == Exiv2::unsignedRational || type == Exiv2::signedRational) {
            const Exiv2::Rational ratio = datum->toRational();
            // Exiv2 returns unsigned numerators beyond 2^31 as negative.
            const bool isUnsigned = type == Exiv2::unsignedRational;
            const double above =
                isUnsigned ? static_cast<double>(static_cast<std::uint32_t>(ratio.first)) : ratio.first;
            const double below =
                isUnsigned ? static_cast<double>(static_cast<std::uint32_t>(ratio.second)) : ratio.second;
            if (below == 0.0)
                return std::nullopt;
            value = above / below;
        } else if (type == Exiv2::asciiString || type == Exiv2::undefined) {
            return std::nullopt;
        } else {
            value = static_cast<double>(datum->toFloat());
        }
        if (!std::isfinite(value))
            return std::nullopt;
        return value;
    }

    [[nodiscard]] float positive(std::initializer_list<const char*> keys, double largest) const
    {
        for (const char* const key : keys)
            if (const auto value = number(key); value && *value > 0.0 && *value <= largest)
                return static_cast<float>(*value);
        return 0.0f;
    }

    [[nodiscard]] std::string text(std::initializer_list<const char*> keys) const
    {
        for (const char* const key : keys)
            if (const Exiv2::Exifdatum* const datum = find(key)) {
                std::string value = datum->toString();
                value.resize(std::strlen(value.c_str()));
                while (!value.empty() && (value.back() == ' ' || value.back() == '\n'))
                    value.pop_back();
                if (!value.empty())
                    return value;
            }
        return {};
    }

private:
    const Exiv2::ExifData& data;
};

// Limits beyond which a number counts as damage.
constexpr double kLongestExposure = 1e6; // s
constexpr double kLargestAperture = 1e4;
constexpr double kLargestIso = 1e8;
constexpr double kLargestFocal = 1e5; // mm
constexpr double kLargestBias = 20.0; // EV

float shutterOf(const Tags& tags)
{
    if (const float seconds = tags.positive({"Exif.Photo.ExposureTime", "Exif.Image.ExposureTime"}, kLongestExposure);
        seconds > 0.0f)
        return seconds;
    const auto apex = tags.number("Exif.Photo.ShutterSpeedValue");
    return apex && std::abs(*apex) <= kLargestBias ? static_cast<float>(std::exp2(-*apex)) : 0.0f;
}

float apertureOf(const Tags& tags)
{
    if (const float number = tags.positive({"Exif.Photo.FNumber", "Exif.Image.FNumber"}, kLargestAperture);
        number > 0.0f)
        return number;
    const auto apex = tags.number("Exif.Photo.ApertureValue");
    return apex && std::abs(*apex) <= kLargestBias ? static_cast<float>(std::exp2(*apex / 2.0)) : 0.0f;
}

// Older cameras store the sensitivity only in their MakerNote.
float makersIso(const Tags& tags)
{
    const auto found = Exiv2::isoSpeed(tags.all());
    if (found == tags.all().end())
        return 0.0f;
    const std::string text = found->print(&tags.all());
    char* end = nullptr;
    const double value = std::strtod(text.c_str(), &end);
    return end != text.c_str() && value > 0.0 && value <= kLargestIso ? static_cast<float>(value) : 0.0f;
}

float isoOf(const Tags& tags)
{
    // The short tag ends at 65535; beyond that the long tags have the number.
    const float iso = tags.positive({"Exif.Photo.ISOSpeedRatings", "Exif.Image.ISOSpeedRatings"}, kLargestIso);
    if (iso > 0.0f && iso < 65535.0f)
        return iso;
    const float longer = tags.positive(
        {"Exif.Photo.ISOSpeed", "Exif.Photo.RecommendedExposureIndex", "Exif.Photo.StandardOutputSensitivity"},
        kLargestIso);
    return longer > 0.0f ? longer : std::max(iso, makersIso(tags));
}

// 36 mm over the sensor's width.
float cropFactorOf(const Tags& tags, float focal)
{
    constexpr double kFullWidth = 36.0; // mm
    const float equivalent = tags.positive({"Exif.Photo.FocalLengthIn35mmFilm"}, kLargestFocal);
    if (equivalent > 0.0f && focal > 0.0f)
        return equivalent / focal;
    const float density = tags.positive({"Exif.Photo.FocalPlaneXResolution"}, 1e7);
    const float pixels = tags.positive({"Exif.Photo.PixelXDimension"}, 1e6);
    if (!(density > 0.0f) || !(pixels > 0.0f))
        return 0.0f;
    const double unit = tags.number("Exif.Photo.FocalPlaneResolutionUnit").value_or(2.0);
    const double millimetres = unit == 3.0 ? 10.0 : unit == 4.0 ? 1.0 : unit == 5.0 ? 0.001 : 25.4;
    const double width = static_cast<double>(pixels) / static_cast<double>(density) * millimetres;
    const double factor = kFullWidth / width;
    return factor > 0.2 && factor < 100.0 ? static_cast<float>(factor) : 0.0f;
}

// "2026:11:21 23:15:00" and its fraction of a second, which has a separate tag.
std::optional<double> captureSecondsOf(const Tags& tags)
{
    const std::string text = tags.text({"Exif.Photo.DateTimeOriginal"});
    int year = 0;
    unsigned month = 0;
    unsigned day = 0;
    int hour = 0;
    int minute = 0;
    int second = 0;
    if (std::sscanf(text.c_str(), "%4d:%2u:%2u %2d:%2d:%2d", &year, &month, &day, &hour, &minute, &second) != 6)
        return std::nullopt;
    const std::chrono::year_month_day date{std::chrono::year(year), std::chrono::month(month), std::chrono::day(day)};
    if (!date.ok() || year < 1970 || hour < 0 || hour > 23 || minute < 0 || minute > 59 || second < 0 || second > 60)
        return std::nullopt;
    const std::string digits = tags.text({"Exif.Photo.SubSecTimeOriginal"});
    const bool isNumber = !digits.empty() && digits.find_first_not_of("0123456789") == std::string::npos;
    const double fraction = isNumber ? std::strtod(("0." + digits).c_str(), nullptr) : 0.0;
    const auto days = static_cast<double>(std::chrono::sys_days(date).time_since_epoch().count());
    return 86400.0 * days + 3600.0 * hour + 60.0 * minute + second + fraction;
}

std::optional<double> biasOf(const Tags& tags)
{
    for (const char* const key : {"Exif.Photo.ExposureBiasValue", "Exif.Image.ExposureBiasValue"})
        if (const auto bias = tags.number(key); bias && std::abs(*bias) <= kLargestBias)
            return bias;
    return std::nullopt;
}

// 0 means a single picture, and the largest short that there is no number.
std::optional<int> sequenceNumberOf(const Tags& tags)
{
    constexpr double kLongestSequence = 65534.0;
    const float number = tags.positive({"Exif.CanonSi.Sequence", "Exif.Panasonic.SequenceNumber",
                                        "Exif.Sony1.SequenceNumber", "Exif.Fujifilm.SequenceNumber"},
                                       kLongestSequence);
    return number > 0.0f ? std::optional(static_cast<int>(number)) : std::nullopt;
}

CaptureFacts captureFactsOf(const Tags& tags)
{
    CaptureFacts facts;
    facts.seconds = captureSecondsOf(tags);
    facts.bodySerial =
        tags.text({"Exif.Photo.BodySerialNumber", "Exif.Canon.SerialNumber", "Exif.Nikon3.SerialNumber"});
    if (const auto mode = tags.number("Exif.Photo.ExposureMode");
        mode && (*mode == 0.0 || *mode == 1.0 || *mode == 2.0))
        facts.exposureMode = static_cast<ExposureMode>(static_cast<int>(*mode));
    facts.exposureBias = biasOf(tags);
    facts.sequenceNumber = sequenceNumberOf(tags);
    return facts;
}

void fillFacts(const Exiv2::ExifData& exif, BlockFacts& facts)
{
    const Tags tags(exif);
    ImageMetadata& record = facts.record;
    record.shutterSeconds = shutterOf(tags);
    record.aperture = apertureOf(tags);
    record.isoSpeed = isoOf(tags);
    if (const auto bias = biasOf(tags)) {
        record.exposureBias = static_cast<float>(*bias);
        facts.hasBias = true;
    }
    record.cameraMake = tags.text({"Exif.Image.Make"});
    record.cameraModel = tags.text({"Exif.Image.Model", "Exif.Image.UniqueCameraModel"});
    record.lensModel = tags.text({"Exif.Photo.LensModel"});
    if (record.lensModel.empty())
        if (const auto lens = Exiv2::lensName(exif); lens != exif.end()) {
            const std::string name = lens->print(&exif);
            // Exiv2 prints unknown numbers as "(123)".
            if (!name.empty() && name.front() != '(' && name != "n/a")
                record.lensModel = name;
        }
    record.focalLength = tags.positive({"Exif.Photo.FocalLength", "Exif.Image.FocalLength"}, kLargestFocal);
    record.cropFactor = cropFactorOf(tags, record.focalLength);
    record.subjectDistance = tags.positive({"Exif.Photo.SubjectDistance"}, 1e6);
    if (const auto orientation = tags.number("Exif.Image.Orientation");
        orientation && *orientation >= 1.0 && *orientation <= 8.0)
        facts.orientation = static_cast<int>(*orientation);
    const double space = tags.number("Exif.Photo.ColorSpace").value_or(1.0);
    facts.adobe = space == 2.0 || (space == 65535.0 && tags.text({"Exif.Iop.InteroperabilityIndex"}) == "R03");
}

std::vector<unsigned char> bytesOf(const Exiv2::DataBuf& buffer)
{
    if (buffer.pData_ == nullptr || buffer.size_ <= 0)
        return {};
    return {buffer.pData_, buffer.pData_ + buffer.size_};
}

Exiv2::ExifData decodeExif(const std::vector<unsigned char>& block)
{
    Exiv2::ExifData exif;
    if (!block.empty() && block.size() <= kLargestKept)
        Exiv2::ExifParser::decode(exif, block.data(), static_cast<std::uint32_t>(block.size()));
    return exif;
}

std::vector<unsigned char> encodeExif(Exiv2::ExifData& exif)
{
    Exiv2::Blob blob;
    if (!exif.empty())
        Exiv2::ExifParser::encode(blob, Exiv2::littleEndian, exif);
    return blob;
}

// Tags of the main directory that describe how the pixels of the old file were stored, or that only raw files have.
bool describesOldPixels(const Exiv2::Exifdatum& datum)
{
    const std::string group = datum.groupName();
    if (group == "Image") {
        static constexpr std::array<std::uint16_t, 38> kStorage = {
            0x00fe, 0x00ff, 0x0100, 0x0101, 0x0102, 0x0103, 0x0106, 0x010a, 0x0111, 0x0115, 0x0116, 0x0117, 0x011c,
            0x013d, 0x0140, 0x0142, 0x0143, 0x0144, 0x0145, 0x014a, 0x0151, 0x0152, 0x0153, 0x0154, 0x015b, 0x0200,
            0x0201, 0x0202, 0x0211, 0x0212, 0x0213, 0x0214, 0x02bc, 0x83bb, 0x8773, 0x8649, 0x828d, 0x828e};
        const std::uint16_t tag = datum.tag();
        // 0xc612 to 0xcfff: DNG.
        return std::find(kStorage.begin(), kStorage.end(), tag) != kStorage.end() || (tag >= 0xc612 && tag <= 0xcfff);
    }
    // Other pictures of the file, and their previews.
    return group == "Thumbnail" || group.rfind("SubImage", 0) == 0 || group.rfind("SubThumb", 0) == 0 ||
           group.rfind("Image", 0) == 0;
}

void makeExifFit(Exiv2::ExifData& exif, _Size<int> size, bool isSRGB)
{
    Exiv2::ExifThumb(exif).erase();
    for (auto datum = exif.begin(); datum != exif.end();)
        datum = describesOldPixels(*datum) ? exif.erase(datum) : std::next(datum);
    exif["Exif.Image.Orientation"] = std::uint16_t{1};
    exif["Exif.Photo.PixelXDimension"] = static_cast<std::uint32_t>(size.width);
    exif["Exif.Photo.PixelYDimension"] = static_cast<std::uint32_t>(size.height);
    exif["Exif.Photo.ColorSpace"] = static_cast<std::uint16_t>(isSRGB ? 1 : 65535);
    if (const auto interop = exif.findKey(Exiv2::ExifKey("Exif.Iop.InteroperabilityIndex")); interop != exif.end())
        exif.erase(interop); // may name the old colour space
}

std::vector<unsigned char> encodeWithin(Exiv2::ExifData& exif, std::size_t limit)
{
    std::vector<unsigned char> block = encodeExif(exif);
    if (block.size() <= limit)
        return block;
    // The MakerNote is what makes EXIF large, and few other programs can read it.
    for (auto datum = exif.begin(); datum != exif.end();) {
        const std::string group = datum->groupName();
        const bool common = group == "Image" || group == "GPSInfo" || group == "Iop" ||
                            (group == "Photo" && datum->tag() != 0x927c && datum->size() < 4096);
        datum = common ? std::next(datum) : exif.erase(datum);
    }
    block = encodeExif(exif);
    return block.size() <= limit ? block : std::vector<unsigned char>();
}

std::string fittingXmp(const std::string& packet, _Size<int> size, const std::string& software)
{
    Exiv2::XmpData xmp;
    if (packet.size() > kLargestKept || Exiv2::XmpParser::decode(xmp, packet) != 0)
        return {};
    for (auto datum = xmp.begin(); datum != xmp.end();) {
        const std::string key = datum->key();
        // Develop settings and gain maps apply to the old pixels.
        const bool old = key.rfind("Xmp.crs.", 0) == 0 || key.rfind("Xmp.xmp.Thumbnails", 0) == 0 ||
                         key.rfind("Xmp.GPano.", 0) == 0 || key.rfind("Xmp.xmpNote.", 0) == 0;
        datum = old ? xmp.erase(datum) : std::next(datum);
    }
    const auto replace = [&xmp](const char* key, const std::string& value) {
        if (xmp.findKey(Exiv2::XmpKey(key)) != xmp.end())
            xmp[key] = value;
    };
    replace("Xmp.tiff.Orientation", "1");
    replace("Xmp.tiff.ImageWidth", std::to_string(size.width));
    replace("Xmp.tiff.ImageLength", std::to_string(size.height));
    replace("Xmp.exif.PixelXDimension", std::to_string(size.width));
    replace("Xmp.exif.PixelYDimension", std::to_string(size.height));
    if (!software.empty())
        replace("Xmp.tiff.Software", software);
    std::string out;
    if (xmp.empty() || Exiv2::XmpParser::encode(out, xmp, Exiv2::XmpParser::useCompactFormat) != 0)
        return {};
    return out;
}

// Catches whatever Exiv2 throws on damaged blocks, except std::bad_alloc.
template <typename Body>
void tolerant(const Body& body)
{
    try {
        body();
    } catch (const std::bad_alloc&) {
        throw;
    } catch (const std::exception&) {
        // A block that cannot be read counts as missing.
    }
}

void append(std::vector<DirectoryEntry>& to, const Exiv2::Exifdatum& datum)
{
    const auto type = static_cast<int>(datum.typeId());
    if (type < 1 || type > 12 || datum.size() <= 0 || static_cast<std::size_t>(datum.size()) > kLargestKept)
        return;
    DirectoryEntry entry{datum.tag(), static_cast<std::uint16_t>(type), static_cast<std::uint64_t>(datum.count()), {}};
    entry.value.resize(static_cast<std::size_t>(datum.size()));
    datum.copy(entry.value.data(), Exiv2::littleEndian);
    to.push_back(std::move(entry));
}

} // namespace

BlockFacts readFacts(EmbeddedMetadata blocks, bool keep, bool wantPreview)
{
    BlockFacts facts;
    {
        const auto lock = enterExiv();
        tolerant([&] {
            const Exiv2::ExifData exif = decodeExif(blocks.exif);
            fillFacts(exif, facts);
            if (wantPreview)
                facts.preview = bytesOf(Exiv2::ExifThumbC(exif).copy());
        });
    }
    if (keep && (!blocks.exif.empty() || !blocks.iptc.empty() || !blocks.xmp.empty()))
        facts.record.embedded = std::make_shared<const EmbeddedMetadata>(std::move(blocks));
    return facts;
}

BlockFacts readFactsOfFile(const std::filesystem::path& path, bool keep)
{
    BlockFacts facts;
    const auto lock = enterExiv();
    tolerant([&] {
        const auto image = Exiv2::ImageFactory::open(path.string()); // narrow name
        if (image.get() == nullptr)
            return;
        image->readMetadata();
        if (image->iccProfileDefined() && image->iccProfile() != nullptr)
            facts.icc = bytesOf(*image->iccProfile());
        Exiv2::ExifData& exif = image->exifData();
        fillFacts(exif, facts);
        if (!keep)
            return;
        EmbeddedMetadata blocks;
        tolerant([&] {
            // Exiv2 would copy strips and previews too.
            Exiv2::ExifThumb(exif).erase();
            for (auto datum = exif.begin(); datum != exif.end();)
                datum = describesOldPixels(*datum) ? exif.erase(datum) : std::next(datum);
            blocks.exif = encodeExif(exif);
        });
        tolerant([&] { blocks.iptc = bytesOf(Exiv2::IptcParser::encode(image->iptcData())); });
        tolerant([&] {
            if (!image->xmpData().empty())
                Exiv2::XmpParser::encode(blocks.xmp, image->xmpData(), Exiv2::XmpParser::useCompactFormat);
        });
        if (!blocks.exif.empty() || !blocks.iptc.empty() || !blocks.xmp.empty())
            facts.record.embedded = std::make_shared<const EmbeddedMetadata>(std::move(blocks));
    });
    return facts;
}

std::vector<unsigned char> iptcFromPhotoshop(std::span<const unsigned char> resources)
{
    std::vector<unsigned char> iptc;
    const auto lock = enterExiv();
    tolerant([&] {
        const Exiv2::byte* record = nullptr;
        std::uint32_t header = 0;
        std::uint32_t length = 0;
        if (Exiv2::Photoshop::locateIptcIrb(resources.data(), static_cast<long>(resources.size()), &record, &header,
                                            &length) == 0 &&
            record != nullptr)
            iptc.assign(record + header, record + header + length);
    });
    return iptc;
}

std::vector<unsigned char> photoshopFromIptc(std::span<const unsigned char> iptc)
{
    // One resource block: mark, number 0x0404, an empty name, length, data padded to an even length.
    std::vector<unsigned char> out = {'8', 'B', 'I', 'M', 0x04, 0x04, 0, 0};
    for (const int shift : {24, 16, 8, 0})
        out.push_back(static_cast<unsigned char>(iptc.size() >> shift));
    out.insert(out.end(), iptc.begin(), iptc.end());
    if (iptc.size() % 2 != 0)
        out.push_back(0);
    return out;
}

EmbeddedMetadata blocksForWriting(const ImageWriteSettings& settings, _Size<int> size, std::size_t exifLimit)
{
    const EmbeddedMetadata none;
    const bool hasBlocks = settings.metadata && settings.metadata->embedded;
    const EmbeddedMetadata& blocks = hasBlocks ? *settings.metadata->embedded : none;
    EmbeddedMetadata out;
    const auto lock = enterExiv();
    tolerant([&] {
        Exiv2::ExifData exif;
        tolerant([&] { exif = decodeExif(blocks.exif); });
        if (exif.empty() && settings.software.empty())
            return;
        makeExifFit(exif, size, *settings.profile == *ColorProfileType::sRGB());
        if (!settings.software.empty())
            exif["Exif.Image.Software"] = settings.software;
        out.exif = encodeWithin(exif, exifLimit);
    });
    tolerant([&] {
        Exiv2::IptcData iptc;
        if (!blocks.iptc.empty() && blocks.iptc.size() <= kLargestKept &&
            Exiv2::IptcParser::decode(iptc, blocks.iptc.data(), static_cast<std::uint32_t>(blocks.iptc.size())) == 0)
            out.iptc = bytesOf(Exiv2::IptcParser::encode(iptc));
    });
    tolerant([&] {
        if (!blocks.xmp.empty())
            out.xmp = fittingXmp(blocks.xmp, size, settings.software);
    });
    return out;
}

ExifDirectories directoriesOf(const std::vector<unsigned char>& block)
{
    ExifDirectories out;
    const auto lock = enterExiv();
    tolerant([&] {
        Exiv2::ExifData exif = decodeExif(block);
        exif.sortByTag();
        for (const Exiv2::Exifdatum& datum : exif) {
            const std::string group = datum.groupName();
            const std::uint16_t tag = datum.tag();
            if (group == "Photo" && tag != 0x927c && tag != 0xa005)
                append(out.photo, datum);
            else if (group == "GPSInfo")
                append(out.gps, datum);
            else if (group == "Image" && datum.typeId() == Exiv2::asciiString)
                append(out.main, datum);
        }
    });
    return out;
}

} // namespace orvo::io

orvo::CaptureFacts orvo::readCaptureFacts(const std::filesystem::path& path)
{
    const auto lock = io::enterExiv();
    try {
        const auto image = Exiv2::ImageFactory::open(path.string()); // narrow name
        image->readMetadata();
        return io::captureFactsOf(io::Tags(image->exifData()));
    } catch (const std::bad_alloc&) {
        throw;
    } catch (const std::exception&) {
        return {}; // not a file of which Exiv2 knows the metadata
    }
}

std::optional<double> orvo::readCaptureTime(const std::filesystem::path& path)
{
    return readCaptureFacts(path).seconds;
}
