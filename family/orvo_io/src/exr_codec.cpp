// OpenEXR: scan lines and tiles, half, float and integer, colour or luminance.
#include "codecs.hpp"
#include "exr_stream.hpp"

#include <orvo_core/chromaticities.hpp>

#include <ImfChannelList.h>
#include <ImfFrameBuffer.h>
#include <ImfHeader.h>
#include <ImfInputPart.h>
#include <ImfMultiPartInputFile.h>
#include <ImfPartType.h>
#include <ImfRgbaFile.h>
#include <ImfStandardAttributes.h>

#include <algorithm>
#include <cmath>
#include <optional>

namespace orvo::io {
namespace {

int partOf(const Imf::MultiPartInputFile& file, const ReadJob& job)
{
    if (job.part.empty()) {
        if (job.index >= file.parts())
            throw ReadFailure("picture " + std::to_string(job.index) + " was requested, the file has " +
                              std::to_string(file.parts()));
        return std::max(job.index, 0);
    }
    for (int i = 0; i < file.parts(); ++i)
        if (file.header(i).hasName() && file.header(i).name() == job.part)
            return i;
    throw ReadFailure("picture \"" + job.part + "\" was requested, the file has none of that name");
}

// Reads to the zero that ends a text. Returns the number of characters before it; empty at the end of the file.
std::optional<std::size_t> skipText(std::FILE* stream)
{
    for (std::size_t count = 0;; ++count) {
        const int character = std::getc(stream);
        if (character <= 0)
            return character == 0 ? std::optional(count) : std::nullopt;
    }
}

// OpenEXR allocates as many bytes as an attribute announces before it checks that the file has them. So this walks all
// headers first: magic number, version, then name, type, size and bytes of each attribute up to an empty name, and one
// more empty name after the last header if there are several. OpenEXR reports all other damage better.
void checkAttributes(const SourceFile& file)
{
    constexpr unsigned kMultiPart = 0x1000; // bit of the version
    const auto readNumber = [&file](std::uint32_t& number) {
        unsigned char bytes[4] = {};
        const bool whole = std::fread(bytes, 1, sizeof bytes, file.stream()) == sizeof bytes;
        number = bytes[0] | static_cast<std::uint32_t>(bytes[1]) << 8 | static_cast<std::uint32_t>(bytes[2]) << 16 |
                 static_cast<std::uint32_t>(bytes[3]) << 24;
        return whole;
    };
    file.rewind();
    std::uint32_t magic = 0;
    std::uint32_t version = 0;
    if (!readNumber(magic) || !readNumber(version))
        return;
    for (bool firstOfHeader = true;;) {
        const auto nameLength = skipText(file.stream());
        if (!nameLength || (*nameLength == 0 && (firstOfHeader || (version & kMultiPart) == 0)))
            return;
        firstOfHeader = *nameLength == 0;
        if (firstOfHeader)
            continue;
        std::uint32_t size = 0;
        if (!skipText(file.stream()) || !readNumber(size))
            return;
        const std::int64_t left = file.size() - static_cast<std::int64_t>(ftello(file.stream()));
        if (size > left)
            throw ReadFailure("the file announces an attribute of " + std::to_string(size) + " bytes but has only " +
                              std::to_string(left) + " more");
        fseeko(file.stream(), static_cast<off_t>(size), SEEK_CUR);
    }
}

// Empty: none stored, which means the primaries of sRGB.
std::shared_ptr<ColorProfile> profileOf(const Imf::Header& header)
{
    if (!Imf::hasChromaticities(header))
        return ColorProfileType::linearSRGB();
    const Imf::Chromaticities& c = Imf::chromaticities(header);
    const Chromaticities numbers = {c.red.x, c.red.y, c.green.x, c.green.y, c.blue.x, c.blue.y, c.white.x, c.white.y};
    const auto near = [](double a, double b) { return std::abs(a - b) < 0.0005; };
    const Chromaticities& s = kSRGBChromaticities;
    if (near(numbers.redX, s.redX) && near(numbers.redY, s.redY) && near(numbers.greenX, s.greenX) &&
        near(numbers.greenY, s.greenY) && near(numbers.blueX, s.blueX) && near(numbers.blueY, s.blueY) &&
        near(numbers.whiteX, s.whiteX) && near(numbers.whiteY, s.whiteY))
        return ColorProfileType::linearSRGB();
    auto profile = profileFromChromaticities(numbers, 1.0);
    return profile ? profile : ColorProfileType::linearSRGB();
}

void readExposure(const Imf::Header& header, ImageMetadata& record)
{
    const auto positiveOrZero = [](float v) { return std::isfinite(v) && v > 0.0f ? v : 0.0f; };
    if (Imf::hasExpTime(header))
        record.shutterSeconds = positiveOrZero(Imf::expTime(header));
    if (Imf::hasAperture(header))
        record.aperture = positiveOrZero(Imf::aperture(header));
    if (Imf::hasIsoSpeed(header))
        record.isoSpeed = positiveOrZero(Imf::isoSpeed(header));
}

// The names of the channels; with one name the picture is gray.
std::vector<std::string> channelNames(const Imf::ChannelList& channels)
{
    const auto plain = [&](const char* name) {
        const Imf::Channel* const channel = channels.findChannel(name);
        return channel != nullptr && channel->xSampling == 1 && channel->ySampling == 1;
    };
    if (plain("R") && plain("G") && plain("B"))
        return {"R", "G", "B"};
    if (plain("Y") && channels.findChannel("RY") == nullptr)
        return {"Y"};
    return {};
}

void readPlainRows(Imf::InputPart& part, const std::vector<std::string>& names, const SampleLayout& layout, int left,
                   int top, PictureSink& sink)
{
    const auto channels = static_cast<std::size_t>(layout.channels);
    while (sink.rowsDone() < layout.height) {
        int rows = layout.height;
        const int first = sink.rowsDone();
        unsigned char* const memory = sink.nextRows(rows);
        // OpenEXR addresses memory with the coordinates of the data window.
        char* const base = reinterpret_cast<char*>(memory) -
                           static_cast<std::ptrdiff_t>(layout.rowBytes()) * (top + first) -
                           static_cast<std::ptrdiff_t>(channels * sizeof(float)) * left;
        Imf::FrameBuffer frame;
        for (std::size_t c = 0; c < names.size(); ++c)
            frame.insert(names[c],
                         Imf::Slice(Imf::FLOAT, base + c * sizeof(float), channels * sizeof(float), layout.rowBytes()));
        part.setFrameBuffer(frame);
        part.readPixels(top + first, top + first + rows - 1);
        sink.commit(rows);
    }
}

// Luminance with chroma at half size: OpenEXR's own filter converts it to colours.
void readLuminanceChroma(const SourceFile& file, const SampleLayout& layout, int left, int top, PictureSink& sink)
{
    file.rewind();
    ExrInput stream(file.stream());
    Imf::RgbaInputFile rgba(stream);
    std::vector<Imf::Rgba> pixels(static_cast<std::size_t>(layout.width));
    std::vector<float> row(static_cast<std::size_t>(layout.width) * 3);
    for (int y = 0; y < layout.height; ++y) {
        rgba.setFrameBuffer(pixels.data() - left - static_cast<std::ptrdiff_t>(top + y) * layout.width, 1,
                            static_cast<std::size_t>(layout.width));
        rgba.readPixels(top + y);
        for (std::size_t x = 0; x < pixels.size(); ++x) {
            row[3 * x] = pixels[x].r;
            row[3 * x + 1] = pixels[x].g;
            row[3 * x + 2] = pixels[x].b;
        }
        sink.put(row.data());
    }
}

} // namespace

ReadAnswer readExr(const SourceFile& file, const ReadJob& job)
{
    checkAttributes(file);
    file.rewind();
    ExrInput stream(file.stream());
    // Does not rebuild a missing line offset table: a truncated file is reported as such.
    std::optional<Imf::MultiPartInputFile> whole;
    try {
        whole.emplace(stream, 0, true);
    } catch (const std::exception& error) {
        throw ReadFailure(std::string("not a readable EXR: ") + error.what());
    }
    const int number = partOf(*whole, job);
    const Imf::Header& header = whole->header(number);
    if (header.hasType() && Imf::isDeepData(header.type()))
        throw ReadFailure("expected a flat picture, found one with deep samples");
    const Imath::Box2i window = header.dataWindow();
    const std::int64_t width = static_cast<std::int64_t>(window.max.x) - window.min.x + 1;
    const std::int64_t height = static_cast<std::int64_t>(window.max.y) - window.min.y + 1;
    checkExtent(file, job, width, height, height / 256 * 8); // the offset table has 8 bytes for at most 256 rows

    ReadAnswer answer;
    readExposure(header, answer.facts.record);
    answer.facts.sampleBits = 16; // at least: the format stores colours as half or float
    const auto profile = profileOf(header);
    answer.facts.record.fileProfile = profile;
    settleRecord({static_cast<int>(width), static_cast<int>(height)}, job, answer.facts);
    if (job.depth == ReadDepth::Facts)
        return answer;

    const std::vector<std::string> names = channelNames(header.channels());
    SampleLayout layout;
    layout.width = static_cast<int>(width);
    layout.height = static_cast<int>(height);
    layout.channels = layout.colors = names.size() == 1 ? 1 : 3;
    layout.type = SampleType::Float32;
    layout.full = 1.0;
    // The format stores colours premultiplied by alpha, which equals compositing over black.
    PictureSink sink = makeSink(layout, job, answer.facts, profile);
    std::string failure;
    try {
        if (names.empty()) {
            const Imf::ChannelList& channels = header.channels();
            if (channels.findChannel("Y") == nullptr || number != 0)
                throw ReadFailure("expected channels R, G, B or Y");
            readLuminanceChroma(file, layout, window.min.x, window.min.y, sink);
        } else {
            Imf::InputPart part(*whole, number);
            readPlainRows(part, names, layout, window.min.x, window.min.y, sink);
        }
    } catch (const std::bad_alloc&) {
        throw;
    } catch (const FailureError&) {
        throw;
    } catch (const std::exception& error) {
        failure = error.what();
    }
    if (sink.rowsDone() < layout.height)
        noteCutOff(sink.rowsDone(), layout.height, failure, job, answer);
    answer.picture = sink.finish();
    return answer;
}

} // namespace orvo::io
