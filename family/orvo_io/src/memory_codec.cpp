// Pictures in the caller's memory.
#include "codecs.hpp"

#include <orvo_io/memory_picture.hpp>

#include <limits>

namespace orvo::io {
namespace {

SampleLayout layoutOf(const MemoryPicture& picture)
{
    SampleLayout layout;
    layout.width = picture.width;
    layout.height = picture.height;
    layout.channels = picture.channels;
    layout.colors = picture.channels < 3 ? 1 : 3;
    layout.alpha = picture.channels % 2 == 0 ? picture.channels - 1 : -1;
    layout.premultiplied = picture.premultiplied;
    switch (picture.samples) {
    case MemoryPicture::Samples::UInt8:
        break; // the layout's default
    case MemoryPicture::Samples::UInt16:
        layout.type = SampleType::UInt16;
        layout.full = std::numeric_limits<std::uint16_t>::max();
        break;
    case MemoryPicture::Samples::Float32:
        layout.type = SampleType::Float32;
        layout.full = 1.0;
        break;
    }
    return layout;
}

[[noreturn]] void refuse(const std::string& field, const std::string& expected, const std::string& found)
{
    throw ReadFailure("MemoryPicture." + field + ": expected " + expected + ", found " + found);
}

void check(const MemoryPicture& picture, const ReadJob& job)
{
    if (picture.data == nullptr)
        refuse("data", "samples", "none");
    checkSize(job, picture.width, picture.height);
    if (picture.channels < 1 || picture.channels > 4)
        refuse("channels", "1 to 4", std::to_string(picture.channels));
    const auto samples = static_cast<std::int32_t>(picture.samples);
    if (samples < 0 || samples > static_cast<std::int32_t>(MemoryPicture::Samples::Float32))
        refuse("samples", "a kind of samples", "number " + std::to_string(samples));
    const SampleLayout layout = layoutOf(picture);
    if (picture.rowBytes != 0 && picture.rowBytes < layout.rowBytes())
        refuse("rowBytes", "at least " + std::to_string(layout.rowBytes()), std::to_string(picture.rowBytes));
    if (picture.profile) {
        const int described = picture.profile->channelCount();
        if (described != 3 && described != layout.colors)
            refuse("profile", "one of " + std::to_string(layout.colors) + " colours",
                   "one of " + std::to_string(described));
    }
}

} // namespace

ReadAnswer readMemory(const MemoryPicture& picture, const ReadJob& job)
{
    refuseParts(job);
    check(picture, job);
    const SampleLayout layout = layoutOf(picture);
    const auto profile = picture.profile ? picture.profile : ColorProfileType::sRGB();
    ReadAnswer answer;
    if (picture.metadata)
        answer.facts.record = *picture.metadata;
    ImageMetadata& record = answer.facts.record;
    record.isRaw = false;
    record.fileProfile = profile;
    if (!job.wants(ImageReaderOpenFlag::Embedded))
        record.embedded = nullptr;
    settleRecord({layout.width, layout.height}, job, answer.facts);
    if (job.depth == ReadDepth::Facts)
        return answer;
    PictureSink sink = makeSink(layout, job, answer.facts, profile);
    const std::size_t rowBytes = picture.rowBytes != 0 ? picture.rowBytes : layout.rowBytes();
    const auto* row = static_cast<const unsigned char*>(picture.data);
    for (int y = 0; y < layout.height; ++y, row += rowBytes)
        sink.put(row);
    answer.picture = sink.finish();
    return answer;
}

} // namespace orvo::io
