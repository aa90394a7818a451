// The video reader on systems other than Windows: FFmpeg. No other file includes its headers.
#include "sources/video_reader.hpp"

#include <orvo_common/wide_path.hpp>
#include <orvo_logger/logstream.hpp>

#include <opencv2/core.hpp>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/display.h>
#include <libavutil/opt.h>
#include <libswscale/swscale.h>
}

#include <tbb/task_arena.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace orvo {
namespace {

// More than any camera records: 16K by 8.5K. A file that claims more is damaged or hostile.
constexpr std::int64_t kMostPixels = 16384LL * 8640;
constexpr int kMostThreads = 16; // libavcodec's own limit; each needs a frame
constexpr int kPacketsForRate = 100;
constexpr int kFileBufferBytes = 1 << 16;
// Interpolated, exactly rounded colour: replicated chroma leaves steps that attract key points.
constexpr int kConversionFlags = SWS_BILINEAR | SWS_FULL_CHR_H_INT | SWS_ACCURATE_RND;
constexpr int kFullRange = 1;
// Neutral picture controls of libswscale, in 16.16 fixed point.
constexpr int kNoBrightness = 0;
constexpr int kUnitContrast = 1 << 16;
constexpr int kUnitSaturation = 1 << 16;
// Files without a matrix follow the two television systems: standard definition ends at these sizes.
constexpr int kWidestStandardDefinition = 1279;
constexpr int kTallestStandardDefinition = 576;

struct FormatCloser
{
    void operator()(AVFormatContext* context) const { avformat_close_input(&context); }
};
struct InputCloser
{
    void operator()(AVIOContext* context) const
    {
        av_freep(&context->buffer); // may differ from the initial one
        avio_context_free(&context);
    }
};
struct DecoderCloser
{
    void operator()(AVCodecContext* context) const { avcodec_free_context(&context); }
};
struct PacketCloser
{
    void operator()(AVPacket* packet) const { av_packet_free(&packet); }
};
struct FrameCloser
{
    void operator()(AVFrame* frame) const { av_frame_free(&frame); }
};
struct ScalerCloser
{
    void operator()(SwsContext* context) const { sws_freeContext(context); }
};

// FFmpeg logs to standard error. Its level is global to the process, so it is silenced once and only if it still has
// FFmpeg's defaults: a program with its own level or callback keeps them.
void quietenFfmpeg()
{
    static std::once_flag once;
    std::call_once(once, [] {
        if (av_log_get_level() == AV_LOG_INFO)
            av_log_set_level(AV_LOG_QUIET);
    });
}

std::string errorText(int code)
{
    std::array<char, AV_ERROR_MAX_STRING_SIZE> text{};
    av_strerror(code, text.data(), text.size());
    return text.data();
}

// The file as read by FFmpeg. Only this file is opened, not the targets of a playlist or a reference movie.
class InputFile
{
public:
    // 0 or FFmpeg's error code.
    [[nodiscard]] int open(const std::filesystem::path& path)
    {
        std::error_code failure;
        const auto status = std::filesystem::status(path, failure);
        if (failure)
            return AVERROR(failure.value());
        if (!std::filesystem::exists(status))
            return AVERROR(ENOENT);
        if (std::filesystem::is_directory(status))
            return AVERROR(EISDIR);
        if (!std::filesystem::is_regular_file(status))
            return AVERROR(EINVAL); // a pipe cannot seek, and may block forever
        bytes = static_cast<std::int64_t>(std::filesystem::file_size(path, failure));
        stream.rdbuf()->pubsetbuf(nullptr, 0); // FFmpeg buffers itself
        stream.open(path, std::ios::binary);
        return stream.is_open() && !failure ? 0 : AVERROR(EACCES);
    }

    static int read(void* self, std::uint8_t* out, int size)
    {
        auto& stream = static_cast<InputFile*>(self)->stream;
        stream.clear();
        stream.read(reinterpret_cast<char*>(out), size);
        if (stream.bad())
            return AVERROR(EIO);
        const auto got = static_cast<int>(stream.gcount());
        return got > 0 ? got : AVERROR_EOF;
    }

    static std::int64_t seek(void* self, std::int64_t offset, int origin)
    {
        auto& file = *static_cast<InputFile*>(self);
        if ((origin & AVSEEK_SIZE) != 0)
            return file.bytes;
        const int from = origin & ~AVSEEK_FORCE;
        const auto direction = from == SEEK_END ? std::ios::end : from == SEEK_CUR ? std::ios::cur : std::ios::beg;
        file.stream.clear();
        file.stream.seekg(offset, direction);
        return file.stream.fail() ? AVERROR(EINVAL) : static_cast<std::int64_t>(file.stream.tellg());
    }

private:
    std::ifstream stream;
    std::int64_t bytes = 0;
};

int refuseOtherFiles(AVFormatContext*, AVIOContext**, const char*, int, AVDictionary**) { return AVERROR(EPERM); }

// Turns a stored picture upright: first transpose, then flip.
struct Turn
{
    bool transpose = false;
    bool flipX = false;
    bool flipY = false;
};

// From the container's display matrix, which maps a stored point (x, y) to (a x + c y, b x + d y); its first row is a
// and b, its second c and d. Only quarter turns and mirrors are possible without resampling; other rotations use the
// nearest of them.
Turn turnOf(const std::int32_t* matrix)
{
    const std::int64_t a = matrix[0];
    const std::int64_t b = matrix[1];
    const std::int64_t c = matrix[3];
    const std::int64_t d = matrix[4];
    if (std::abs(b) > std::abs(a))
        return {true, c < 0, b < 0};
    return {false, a < 0, d < 0};
}

void turnUpright(const cv::Mat& stored, const Turn& turn, cv::Mat& out)
{
    constexpr int kAboutX = 0; // codes of cv::flip
    constexpr int kAboutY = 1;
    constexpr int kAboutBoth = -1;
    if (turn.transpose)
        cv::transpose(stored, out);
    const cv::Mat& straight = turn.transpose ? out : stored;
    if (turn.flipX || turn.flipY)
        cv::flip(straight, out, !turn.flipX ? kAboutX : !turn.flipY ? kAboutY : kAboutBoth);
    else if (!turn.transpose)
        stored.copyTo(out);
}

// libswscale takes the full range of the old "J" formats as a setting, and warns about these formats.
AVPixelFormat plainFormat(AVPixelFormat format, bool& isFullRange)
{
    const auto full = [&isFullRange](AVPixelFormat plain) {
        isFullRange = true;
        return plain;
    };
    switch (format) {
    case AV_PIX_FMT_YUVJ420P:
        return full(AV_PIX_FMT_YUV420P);
    case AV_PIX_FMT_YUVJ422P:
        return full(AV_PIX_FMT_YUV422P);
    case AV_PIX_FMT_YUVJ444P:
        return full(AV_PIX_FMT_YUV444P);
    case AV_PIX_FMT_YUVJ440P:
        return full(AV_PIX_FMT_YUV440P);
    case AV_PIX_FMT_YUVJ411P:
        return full(AV_PIX_FMT_YUV411P);
    default:
        return format;
    }
}

int matrixOf(const AVFrame& frame)
{
    switch (frame.colorspace) {
    case AVCOL_SPC_UNSPECIFIED:
    case AVCOL_SPC_RESERVED:
    case AVCOL_SPC_RGB:
        return frame.width > kWidestStandardDefinition || frame.height > kTallestStandardDefinition ? SWS_CS_ITU709
                                                                                                    : SWS_CS_ITU601;
    default:
        return frame.colorspace; // libswscale uses the same numbers
    }
}

int workers() { return std::clamp(tbb::this_task_arena::max_concurrency(), 1, kMostThreads); }

// Converts pixels of any format to 8-bit blue, green, red. Applies the frame's matrix and range; primaries and transfer
// curve are not changed.
class ColourConverter
{
public:
    // The picture in memory of this object, valid until the next call; empty if the format cannot be converted.
    [[nodiscard]] cv::Mat convert(AVFrame& frame)
    {
        bool isFullRange = frame.color_range == AVCOL_RANGE_JPEG;
        frame.format = plainFormat(static_cast<AVPixelFormat>(frame.format), isFullRange);
        const Source requested{frame.width, frame.height, frame.format, matrixOf(frame), isFullRange};
        if (!(scaler && requested == source) && !prepare(requested))
            return {};
        if (sws_scale_frame(scaler.get(), converted.get(), &frame) < 0)
            return {};
        return {frame.height, frame.width, CV_8UC3, converted->data[0],
                static_cast<std::size_t>(converted->linesize[0])};
    }

private:
    struct Source
    {
        int width = 0;
        int height = 0;
        int format = AV_PIX_FMT_NONE;
        int matrix = 0;
        bool isFullRange = false;
        bool operator==(const Source&) const = default;
    };

    bool prepare(const Source& requested);

    std::unique_ptr<SwsContext, ScalerCloser> scaler;
    // The converters write full vectors, beyond the ends of rows; FFmpeg's own frames have padding for that.
    std::unique_ptr<AVFrame, FrameCloser> converted;
    Source source;
};

bool ColourConverter::prepare(const Source& requested)
{
    source = requested;
    scaler.reset(sws_alloc_context());
    converted.reset(av_frame_alloc());
    if (!scaler || !converted)
        return false;
    converted->width = requested.width;
    converted->height = requested.height;
    converted->format = AV_PIX_FMT_BGR24;
    int code = av_frame_get_buffer(converted.get(), 0);
    const auto set = [&](const char* option, std::int64_t value) {
        code = std::min(code, av_opt_set_int(scaler.get(), option, value, 0));
    };
    set("srcw", requested.width);
    set("srch", requested.height);
    set("src_format", requested.format);
    set("dstw", requested.width);
    set("dsth", requested.height);
    set("dst_format", AV_PIX_FMT_BGR24);
    set("sws_flags", kConversionFlags);
    set("threads", workers());
    if (code < 0 || sws_init_context(scaler.get(), nullptr, nullptr) < 0) {
        scaler.reset();
        return false;
    }
    // Fails for sources that are already RGB: they have no matrix.
    sws_setColorspaceDetails(scaler.get(), sws_getCoefficients(requested.matrix),
                             requested.isFullRange ? kFullRange : 0, sws_getCoefficients(SWS_CS_DEFAULT), kFullRange,
                             kNoBrightness, kUnitContrast, kUnitSaturation);
    return true;
}

bool isTooLarge(const AVCodecParameters& parameters)
{
    return static_cast<std::int64_t>(parameters.width) * parameters.height > kMostPixels;
}

// Probes the streams, which decodes the beginning of each; pictures beyond the limit fail here too.
int findStreams(AVFormatContext& format)
{
    std::vector<AVDictionary*> limits(std::max(1u, format.nb_streams), nullptr);
    int code = 0;
    for (AVDictionary*& limit : limits)
        code = std::min(code, av_dict_set_int(&limit, "max_pixels", kMostPixels, 0));
    if (code >= 0)
        code = avformat_find_stream_info(&format, limits.data());
    for (AVDictionary*& limit : limits)
        av_dict_free(&limit);
    return code;
}

// The first video stream that is not a cover picture. FFmpeg's error code if there is none.
int firstVideoStream(const AVFormatContext& format)
{
    for (unsigned i = 0; i < format.nb_streams; ++i) {
        const AVStream& stream = *format.streams[i];
        if (stream.codecpar->codec_type == AVMEDIA_TYPE_VIDEO &&
            (stream.disposition & AV_DISPOSITION_ATTACHED_PIC) == 0)
            return static_cast<int>(i);
    }
    return AVERROR_STREAM_NOT_FOUND;
}

class FfmpegReader final : public VideoReader
{
public:
    // 0 or FFmpeg's error code.
    [[nodiscard]] int open(const std::filesystem::path& path)
    {
        name = path;
        const int code = file.open(path);
        if (code < 0)
            return code;
        packet.reset(av_packet_alloc());
        frame.reset(av_frame_alloc());
        if (!packet || !frame)
            return AVERROR(ENOMEM);
        const int started = start();
        return started < 0 ? started : findRate();
    }

    [[nodiscard]] VideoFrameRate frameRate() override
    {
        if (rate.num <= 0 || rate.den <= 0)
            return {};
        return {static_cast<std::uint32_t>(rate.num), static_cast<std::uint32_t>(rate.den)};
    }

    [[nodiscard]] std::uint64_t frameCount() override
    {
        if (!format)
            return 0;
        const AVStream& stream = *format->streams[streamIndex];
        if (stream.nb_frames > 0)
            return static_cast<std::uint64_t>(stream.nb_frames);
        if (rate.num <= 0 || rate.den <= 0)
            return 0;
        double seconds = 0.0;
        if (stream.duration > 0)
            seconds = static_cast<double>(stream.duration) * av_q2d(stream.time_base);
        else if (format->duration > 0)
            seconds = static_cast<double>(format->duration) / AV_TIME_BASE;
        constexpr double kMostFrames = 1e12; // headers may contain anything
        return static_cast<std::uint64_t>(std::clamp(seconds * av_q2d(rate), 0.0, kMostFrames));
    }

    [[nodiscard]] bool readSample(cv::Mat& out) override
    {
        if (!decoder || !decodeFrame())
            return false;
        const cv::Mat stored = converter.convert(*frame);
        av_frame_unref(frame.get());
        if (stored.empty())
            return false;
        turnUpright(stored, turn, out);
        return true;
    }

    // Restarts demuxer and decoder. A seek by time would find the first sample only in containers with a correct index
    // and times; this works for all, at the cost of opening.
    [[nodiscard]] bool seekToStart() override { return start() == 0; }

private:
    [[nodiscard]] int start();
    [[nodiscard]] int openFormat();
    [[nodiscard]] int openDecoder();
    [[nodiscard]] int findRate();
    [[nodiscard]] bool decodeFrame();
    void feedDecoder();
    void endOfData();
    void endAtDamage(const std::string& reason);
    void noteTime();
    void complainIfCutOff();

    std::filesystem::path name;
    InputFile file; // declared first: the contexts below read from it
    std::unique_ptr<AVIOContext, InputCloser> input;
    std::unique_ptr<AVFormatContext, FormatCloser> format;
    std::unique_ptr<AVCodecContext, DecoderCloser> decoder;
    std::unique_ptr<AVPacket, PacketCloser> packet;
    std::unique_ptr<AVFrame, FrameCloser> frame;
    ColourConverter converter;
    int streamIndex = 0;
    AVRational rate{0, 0}; // frames per second
    Turn turn;
    std::uint64_t delivered = 0;    // frames decoded since the start
    std::optional<double> lastTime; // of the frame decoded last, in seconds
    bool hasDamage = false;         // it was reported
    bool isDraining = false;        // the end of the packets was signalled to the decoder
};

int FfmpegReader::start()
{
    decoder.reset();
    format.reset();
    input.reset();
    delivered = 0;
    isDraining = false;
    const int code = openFormat();
    return code < 0 ? code : openDecoder();
}

int FfmpegReader::openFormat()
{
    if (InputFile::seek(&file, 0, SEEK_SET) < 0)
        return AVERROR(EIO);
    auto* const buffer = static_cast<unsigned char*>(av_malloc(kFileBufferBytes));
    if (buffer == nullptr)
        return AVERROR(ENOMEM);
    input.reset(avio_alloc_context(buffer, kFileBufferBytes, 0, &file, &InputFile::read, nullptr, &InputFile::seek));
    if (!input) {
        av_free(buffer);
        return AVERROR(ENOMEM);
    }
    AVFormatContext* context = avformat_alloc_context();
    if (context == nullptr)
        return AVERROR(ENOMEM);
    context->pb = input.get();
    context->io_open = &refuseOtherFiles;
    int code = avformat_open_input(&context, "", nullptr, nullptr); // frees the context on failure
    if (code < 0)
        return code;
    format.reset(context);
    code = findStreams(*format);
    if (code < 0)
        return code;
    streamIndex = firstVideoStream(*format);
    if (streamIndex < 0)
        return streamIndex;
    for (unsigned i = 0; i < format->nb_streams; ++i)
        if (static_cast<int>(i) != streamIndex)
            format->streams[i]->discard = AVDISCARD_ALL;
    return 0;
}

int FfmpegReader::openDecoder()
{
    const AVStream& stream = *format->streams[streamIndex];
    const AVCodecParameters& parameters = *stream.codecpar;
    if (parameters.width <= 0 || parameters.height <= 0 || isTooLarge(parameters))
        return AVERROR_INVALIDDATA;
    const AVCodec* const codec = avcodec_find_decoder(parameters.codec_id);
    if (codec == nullptr)
        return AVERROR_DECODER_NOT_FOUND;
    decoder.reset(avcodec_alloc_context3(codec));
    if (!decoder)
        return AVERROR(ENOMEM);
    int code = avcodec_parameters_to_context(decoder.get(), &parameters);
    if (code >= 0) {
        decoder->pkt_timebase = stream.time_base;
        decoder->max_pixels = kMostPixels; // pictures may become larger within a stream
        decoder->thread_count = workers();
        code = avcodec_open2(decoder.get(), codec, nullptr);
    }
    if (code < 0) {
        decoder.reset();
        return code;
    }
    const std::uint8_t* const matrix = av_stream_get_side_data(&stream, AV_PKT_DATA_DISPLAYMATRIX, nullptr);
    turn = matrix != nullptr ? turnOf(reinterpret_cast<const std::int32_t*>(matrix)) : Turn{};
    return 0;
}

// The mean rate of the container or, if it has none because frames are irregular, of the first packets. FFmpeg's other
// value, the rate whose multiples all times are, may be a thousand for such files.
int FfmpegReader::findRate()
{
    rate = format->streams[streamIndex]->avg_frame_rate;
    if (rate.num > 0 && rate.den > 0)
        return 0;
    std::int64_t earliest = INT64_MAX;
    std::int64_t latest = INT64_MIN;
    int count = 0;
    while (count < kPacketsForRate && av_read_frame(format.get(), packet.get()) >= 0) {
        if (packet->stream_index == streamIndex && packet->pts != AV_NOPTS_VALUE) {
            earliest = std::min(earliest, packet->pts);
            latest = std::max(latest, packet->pts);
            ++count;
        }
        av_packet_unref(packet.get());
    }
    rate = {0, 0};
    if (count > 1 && latest > earliest) {
        const AVRational tick = format->streams[streamIndex]->time_base;
        av_reduce(&rate.num, &rate.den, (count - 1) * static_cast<std::int64_t>(tick.den),
                  (latest - earliest) * static_cast<std::int64_t>(tick.num), INT32_MAX);
    }
    return start(); // probed packets are consumed
}

// The next frame of the decoder, in order of presentation. Data that cannot be decoded end the video, since a gap would
// shift the numbers of all later frames; but a recording cut from a longer one may begin with such data, and its frames
// count from the first complete one.
bool FfmpegReader::decodeFrame()
{
    for (;;) {
        const int code = avcodec_receive_frame(decoder.get(), frame.get());
        if (code == 0) {
            ++delivered;
            noteTime();
            return true;
        }
        if (code == AVERROR_EOF || isDraining) {
            complainIfCutOff();
            return false;
        }
        if (code != AVERROR(EAGAIN) && delivered > 0)
            endAtDamage(errorText(code));
        else
            feedDecoder();
    }
}

void FfmpegReader::feedDecoder()
{
    for (;;) {
        const int code = av_read_frame(format.get(), packet.get());
        if (code == AVERROR_EOF)
            return endOfData();
        if (code < 0)
            return endAtDamage(errorText(code));
        if (packet->stream_index == streamIndex)
            break;
        av_packet_unref(packet.get());
    }
    const bool isWhole = (packet->flags & AV_PKT_FLAG_CORRUPT) == 0; // not truncated by the end of the file
    const int code = isWhole ? avcodec_send_packet(decoder.get(), packet.get()) : AVERROR_INVALIDDATA;
    av_packet_unref(packet.get());
    if (code < 0 && delivered > 0)
        endAtDamage(isWhole ? errorText(code) : "the file ends within a frame");
}

void FfmpegReader::noteTime()
{
    if (frame->best_effort_timestamp != AV_NOPTS_VALUE)
        lastTime = static_cast<double>(frame->best_effort_timestamp) * av_q2d(format->streams[streamIndex]->time_base);
}

// Some containers end anywhere without an error; their header has the length of the whole.
void FfmpegReader::complainIfCutOff()
{
    constexpr double kMissing = 0.5; // seconds; sound can be longer than the pictures by less than that
    const AVStream& stream = *format->streams[streamIndex];
    if (hasDamage || !lastTime || format->duration_estimation_method != AVFMT_DURATION_FROM_STREAM)
        return;
    const double begin =
        stream.start_time != AV_NOPTS_VALUE ? static_cast<double>(stream.start_time) * av_q2d(stream.time_base) : 0.0;
    const double length = stream.duration != AV_NOPTS_VALUE
                              ? static_cast<double>(stream.duration) * av_q2d(stream.time_base)
                              : static_cast<double>(format->duration) / AV_TIME_BASE;
    if (*lastTime + kMissing < begin + length)
        endAtDamage("it has a length of " + std::to_string(length) + " s");
}

// The line appears once, however often the video is rewound.
void FfmpegReader::endAtDamage(const std::string& reason)
{
    if (!hasDamage)
        details::logWarning(pathText(name) + ": the video is damaged or cut off after " + std::to_string(delivered) +
                            " frames: " + reason);
    hasDamage = true;
    endOfData();
}

void FfmpegReader::endOfData()
{
    isDraining = true;
    avcodec_send_packet(decoder.get(), nullptr); // flushes the remaining frames
}

} // namespace

OpenedVideo openVideoReader(const std::wstring& path)
{
    quietenFfmpeg();
    const std::filesystem::path file = pathFromWide(path);
    auto reader = std::make_unique<FfmpegReader>();
    const int code = reader->open(file);
    if (code == 0)
        return {VideoOpening::Opened, 0, std::move(reader)};
    LOG(__orvolog() << LogMessageType::Warning << "FFmpeg cannot read " << pathText(file) << ": " << errorText(code));
    return {VideoOpening::Unreadable, code, nullptr};
}

} // namespace orvo
