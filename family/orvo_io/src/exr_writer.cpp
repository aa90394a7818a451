#include "exr_stream.hpp"
#include "row_source.hpp"

#include <orvo_core/chromaticities.hpp>

#include <ImfChannelList.h>
#include <ImfFrameBuffer.h>
#include <ImfHeader.h>
#include <ImfOutputFile.h>
#include <ImfStandardAttributes.h>
#include <ImfStringAttribute.h>
#include <half.h>

#include <algorithm>
#include <vector>

namespace orvo::io {
namespace {

constexpr float kLargestHalf = 65504.0f;

std::vector<const char*> channelsOf(const ImageWriteSettings& settings)
{
    return settings.alpha ? std::vector{"R", "G", "B", "A"} : std::vector{"R", "G", "B"};
}

Imf::Header headerFor(_Size<int> size, const ImageWriteSettings& settings)
{
    Imf::Header header(size.width, size.height);
    // Blocks of 16 rows: the usual choice for pictures that are read by rows.
    header.compression() = Imf::ZIP_COMPRESSION;
    const Imf::PixelType type = settings.bits == 16 ? Imf::HALF : Imf::FLOAT;
    for (const char* const name : channelsOf(settings))
        header.channels().insert(name, Imf::Channel(type));
    const auto point = [](double x, double y) { return Imath::V2f(static_cast<float>(x), static_cast<float>(y)); };
    constexpr Chromaticities c = kSRGBChromaticities;
    Imf::addChromaticities(header, Imf::Chromaticities(point(c.redX, c.redY), point(c.greenX, c.greenY),
                                                       point(c.blueX, c.blueY), point(c.whiteX, c.whiteY)));
    if (settings.whiteLuminance > 0.0f)
        Imf::addWhiteLuminance(header, settings.whiteLuminance);
    if (!settings.software.empty())
        header.insert("software", Imf::StringAttribute(settings.software));
    if (settings.metadata) {
        // The format has no EXIF, only these three attributes.
        if (settings.metadata->shutterSeconds > 0.0f)
            Imf::addExpTime(header, settings.metadata->shutterSeconds);
        if (settings.metadata->aperture > 0.0f)
            Imf::addAperture(header, settings.metadata->aperture);
        if (settings.metadata->isoSpeed > 0.0f)
            Imf::addIsoSpeed(header, settings.metadata->isoSpeed);
    }
    return header;
}

} // namespace

void writeExr(OutputFile& file, const _ImageData<PixelRGB<float>>& picture, const ImageWriteSettings& settings,
              const RunControl& run)
{
    ExrOutput stream(file.stream());
    RowSource source(picture, settings.profile, RowFormat::Linear, run, settings.alpha.get());
    const bool isHalf = settings.bits == 16;
    const auto samples = static_cast<std::size_t>(picture.width()) * source.channels();
    std::vector<half> halves(isHalf ? samples : 0);
    std::vector<float> floats(isHalf ? 0 : samples);
    try {
        Imf::OutputFile out(stream, headerFor(picture.size(), settings));
        char* const base = isHalf ? reinterpret_cast<char*>(halves.data()) : reinterpret_cast<char*>(floats.data());
        const std::size_t bytes = isHalf ? sizeof(half) : sizeof(float);
        Imf::FrameBuffer frame;
        // A row stride of 0: every row is passed in the same memory.
        std::size_t offset = 0;
        for (const char* const name : channelsOf(settings)) {
            frame.insert(name,
                         Imf::Slice(isHalf ? Imf::HALF : Imf::FLOAT, base + offset, source.channels() * bytes, 0));
            offset += bytes;
        }
        out.setFrameBuffer(frame);
        for (int y = 0; y < picture.height(); ++y) {
            const auto* const row = reinterpret_cast<const float*>(source.row(y));
            if (isHalf)
                for (std::size_t i = 0; i < samples; ++i)
                    halves[i] =
                        half(std::clamp(row[i], -kLargestHalf, kLargestHalf)); // infinity would spoil every mean
            else
                std::copy_n(row, samples, floats.begin());
            out.writePixels(1);
        }
    } catch (const FailureError&) {
        throw;
    } catch (const std::bad_alloc&) {
        throw;
    } catch (const std::exception& error) {
        throw file.failure(stream.systemError(), error.what());
    }
    // The destructor of `out` writes the line offset table and cannot throw.
    if (stream.systemError() != 0)
        throw file.failure(stream.systemError(), "cannot be written");
}

} // namespace orvo::io
