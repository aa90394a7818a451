// WebP through libwebp.
#include "codecs.hpp"

#include <webp/decode.h>
#include <webp/demux.h>

#include <algorithm>

namespace orvo::io {
namespace {

// The format is limited to 16383 pixels a side, so no real file comes near this.
constexpr std::int64_t kLargestFile = std::int64_t{1} << 30;

struct DeleteDemuxer
{
    void operator()(WebPDemuxer* demuxer) const noexcept { WebPDemuxDelete(demuxer); }
};
struct DeleteDecoder
{
    void operator()(WebPIDecoder* decoder) const noexcept { WebPIDelete(decoder); }
};

std::vector<unsigned char> chunk(const WebPDemuxer* demuxer, const char* name)
{
    WebPChunkIterator iterator;
    std::vector<unsigned char> bytes;
    if (WebPDemuxGetChunk(demuxer, name, 1, &iterator) != 0)
        bytes.assign(iterator.chunk.bytes, iterator.chunk.bytes + iterator.chunk.size);
    WebPDemuxReleaseChunkIterator(&iterator);
    return bytes;
}

} // namespace

ReadAnswer readWebP(const SourceFile& file, const ReadJob& job)
{
    refuseParts(job);
    const std::vector<unsigned char> bytes = file.readAll(kLargestFile);
    const WebPData data = {bytes.data(), bytes.size()};
    WebPDemuxState state = WEBP_DEMUX_PARSE_ERROR;
    const std::unique_ptr<WebPDemuxer, DeleteDemuxer> demuxer(WebPDemuxPartial(&data, &state));
    if (!demuxer || state < WEBP_DEMUX_PARSED_HEADER)
        throw ReadFailure("not a readable WebP: its header is damaged or truncated");
    const auto width = static_cast<int>(WebPDemuxGetI(demuxer.get(), WEBP_FF_CANVAS_WIDTH));
    const auto height = static_cast<int>(WebPDemuxGetI(demuxer.get(), WEBP_FF_CANVAS_HEIGHT));
    checkExtent(file, job, width, height, 0); // a picture of one colour takes little more than a header

    ReadAnswer answer;
    EmbeddedMetadata blocks;
    blocks.exif = chunk(demuxer.get(), "EXIF");
    constexpr unsigned char kMark[] = {'E', 'x', 'i', 'f', 0, 0};
    if (blocks.exif.size() > sizeof(kMark) && std::equal(std::begin(kMark), std::end(kMark), blocks.exif.begin()))
        blocks.exif.erase(blocks.exif.begin(), blocks.exif.begin() + sizeof(kMark));
    const std::vector<unsigned char> xmp = chunk(demuxer.get(), "XMP ");
    blocks.xmp.assign(xmp.begin(), xmp.end());
    answer.facts = readFacts(std::move(blocks), job.wants(ImageReaderOpenFlag::Embedded), job.wantPreview);
    SampleLayout layout;
    layout.width = width;
    layout.height = height;
    layout.channels = 4;
    layout.alpha = 3;
    const auto profile = settleProfile(chunk(demuxer.get(), "ICCP"), 3, job, answer.facts);
    settleRecord({width, height}, job, answer.facts);
    if (job.depth == ReadDepth::Facts)
        return answer;

    // The first frame of an animation; a still picture has only one.
    WebPIterator frame;
    const bool hasFrame = WebPDemuxGetFrame(demuxer.get(), 1, &frame) != 0;
    PictureSink sink = makeSink(layout, job, answer.facts, profile);
    if (hasFrame) {
        const int frameWidth = std::min(frame.width, width - frame.x_offset);
        const int frameHeight = std::min(frame.height, height - frame.y_offset);
        const std::size_t stride = static_cast<std::size_t>(frame.width) * 4;
        const std::size_t planeBytes = stride * static_cast<std::size_t>(frame.height);
        const ManagedPlane<unsigned char> plane(planeBytes, true);
        const std::unique_ptr<WebPIDecoder, DeleteDecoder> decoder(
            WebPINewRGB(MODE_RGBA, plane.data(), planeBytes, static_cast<int>(stride)));
        int rows = 0;
        if (decoder) {
            const VP8StatusCode status = WebPIAppend(decoder.get(), frame.fragment.bytes, frame.fragment.size);
            if (status == VP8_STATUS_OK)
                rows = frame.height;
            else if (WebPIDecGetRGB(decoder.get(), &rows, nullptr, nullptr, nullptr) == nullptr)
                rows = 0;
        }
        WebPDemuxReleaseIterator(&frame);
        std::vector<unsigned char> row(layout.rowBytes());
        const int end = rows == frame.height ? height : frame.y_offset + rows;
        for (int y = 0; y < end; ++y) {
            std::fill(row.begin(), row.end(), static_cast<unsigned char>(0));
            if (y >= frame.y_offset && y < frame.y_offset + frameHeight)
                std::copy_n(plane.data() + stride * static_cast<std::size_t>(y - frame.y_offset),
                            static_cast<std::size_t>(frameWidth) * 4,
                            row.begin() + static_cast<std::ptrdiff_t>(frame.x_offset) * 4);
            sink.put(row.data());
        }
    }
    if (sink.rowsDone() < height)
        noteCutOff(sink.rowsDone(), height, {}, job, answer);
    answer.picture = sink.finish();
    return answer;
}

} // namespace orvo::io
