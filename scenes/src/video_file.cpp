#include <scenes/video_file.hpp>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/display.h>
#include <libavutil/opt.h>
#include <libswscale/swscale.h>
}

#include <algorithm>
#include <array>
#include <memory>
#include <stdexcept>
#include <string>

namespace orvo::scenes {
namespace {

constexpr int kMillisecondsPerSecond = 1000;
constexpr int kBytesPerPixel = 3;
// Almost no visible loss, at the lowest effort, for tests.
constexpr const char* kConstantQuality = "18";
constexpr const char* kEncoderEffort = "veryfast";
constexpr int kMpeg4Quality = 2 * FF_QP2LAMBDA; // of 1..31, 1 the best
constexpr int kSoundRate = 8000;

// Frame numbers: fields along each side; the last one makes the number of white fields even.
constexpr int kFields = 4;
constexpr std::uint32_t kParityBit = kFields * kFields - 1;
constexpr int kWhiteThreshold = 128;
// An evenly gray picture must not be read as frame 0.
constexpr std::uint32_t kScramble = 0x2aaa;

struct MuxerCloser
{
    void operator()(AVFormatContext* context) const
    {
        avio_closep(&context->pb);
        avformat_free_context(context);
    }
};
struct EncoderCloser
{
    void operator()(AVCodecContext* context) const { avcodec_free_context(&context); }
};
struct FrameCloser
{
    void operator()(AVFrame* frame) const { av_frame_free(&frame); }
};
struct PacketCloser
{
    void operator()(AVPacket* packet) const { av_packet_free(&packet); }
};
struct ScalerCloser
{
    void operator()(SwsContext* context) const { sws_freeContext(context); }
};
using Muxer = std::unique_ptr<AVFormatContext, MuxerCloser>;
using Encoder = std::unique_ptr<AVCodecContext, EncoderCloser>;
using Frame = std::unique_ptr<AVFrame, FrameCloser>;
using Packet = std::unique_ptr<AVPacket, PacketCloser>;

int checked(int code, const char* what)
{
    if (code < 0) {
        std::array<char, AV_ERROR_MAX_STRING_SIZE> text{};
        av_strerror(code, text.data(), text.size());
        throw std::runtime_error(std::string("writing a video: ") + what + ": " + text.data());
    }
    return code;
}

template <typename Pointer>
Pointer there(Pointer pointer, const char* what)
{
    if (pointer == nullptr)
        throw std::runtime_error(std::string("writing a video: missing ") + what);
    return pointer;
}

const char* encoderName(VideoCodec codec)
{
    switch (codec) {
    case VideoCodec::H264:
        return "libx264";
    case VideoCodec::Hevc:
        return "libx265";
    case VideoCodec::Mpeg4:
        return "mpeg4";
    case VideoCodec::Ffv1:
        return "ffv1";
    }
    throw std::invalid_argument("VideoFileSettings.codec is not one of the four");
}

Muxer openMuxer(const std::filesystem::path& path)
{
    AVFormatContext* context = nullptr;
    checked(avformat_alloc_output_context2(&context, nullptr, nullptr, path.c_str()), "container");
    Muxer muxer(context);
    // Keeps negative times; MP4 removes them with its edit list.
    muxer->avoid_negative_ts = 0;
    checked(avio_open(&muxer->pb, path.c_str(), AVIO_FLAG_WRITE), "file");
    return muxer;
}

void tuneEncoder(AVCodecContext& encoder, const VideoFileSettings& settings)
{
    encoder.gop_size = settings.keyFrameInterval;
    if (settings.codec == VideoCodec::H264 || settings.codec == VideoCodec::Hevc) {
        av_opt_set(encoder.priv_data, "preset", kEncoderEffort, 0);
        av_opt_set(encoder.priv_data, "crf", kConstantQuality, 0);
    }
    if (settings.codec == VideoCodec::Hevc) {
        const std::string own = "log-level=none:pools=1:frame-threads=1:bframes=" + std::to_string(settings.bFrames);
        av_opt_set(encoder.priv_data, "x265-params", own.c_str(), 0);
    }
    if (settings.codec == VideoCodec::Mpeg4) {
        encoder.flags |= AV_CODEC_FLAG_QSCALE;
        encoder.global_quality = kMpeg4Quality;
    }
    if (settings.codec != VideoCodec::Ffv1)
        encoder.max_b_frames = settings.bFrames;
}

Encoder openEncoder(const AVFormatContext& muxer, _Size<int> size, const VideoFileSettings& settings)
{
    const AVCodec* const codec = there(avcodec_find_encoder_by_name(encoderName(settings.codec)), "encoder");
    Encoder encoder(there(avcodec_alloc_context3(codec), "memory"));
    encoder->width = size.width;
    encoder->height = size.height;
    encoder->pix_fmt = settings.fullColourPlanes ? AV_PIX_FMT_YUV444P
                       : settings.tenBits        ? AV_PIX_FMT_YUV420P10
                                                 : AV_PIX_FMT_YUV420P;
    encoder->time_base = settings.timesMs.empty() ? AVRational{settings.rateDenominator, settings.rateNumerator}
                                                  : AVRational{1, kMillisecondsPerSecond};
    if (settings.timesMs.empty())
        encoder->framerate = {settings.rateNumerator, settings.rateDenominator};
    encoder->color_range = settings.fullRange ? AVCOL_RANGE_JPEG : AVCOL_RANGE_MPEG;
    if (settings.matrix != VideoMatrix::Unnamed)
        encoder->colorspace = settings.matrix == VideoMatrix::Bt709 ? AVCOL_SPC_BT709 : AVCOL_SPC_SMPTE170M;
    if ((muxer.oformat->flags & AVFMT_GLOBALHEADER) != 0)
        encoder->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
    encoder->thread_count = 1;
    encoder->log_level_offset = AV_LOG_TRACE; // silences what encoders print to standard error
    tuneEncoder(*encoder, settings);
    checked(avcodec_open2(encoder.get(), codec, nullptr), "encoder");
    return encoder;
}

void writeDisplayMatrix(AVStream& stream, const VideoFileSettings& settings)
{
    if (settings.rotationDegrees == 0 && !settings.mirrored)
        return;
    auto* const matrix = reinterpret_cast<std::int32_t*>(
        there(av_stream_new_side_data(&stream, AV_PKT_DATA_DISPLAYMATRIX, 9 * sizeof(std::int32_t)), "memory"));
    av_display_rotation_set(matrix, settings.rotationDegrees);
    if (settings.mirrored) {
        // Mirrored first: the stored x changes its sign.
        matrix[0] = -matrix[0];
        matrix[1] = -matrix[1];
    }
}

// Default duration of a frame: at a constant rate one tick, else that of 50 frames a second.
AVRational usualInterval(const AVCodecContext& encoder)
{
    return encoder.framerate.num != 0 ? av_inv_q(encoder.framerate) : AVRational{1, 50};
}

// Passes a frame, or none for the end, to the encoder and writes its output to the file.
void encode(AVFormatContext& muxer, const AVStream& stream, AVCodecContext& encoder, const AVFrame* frame)
{
    checked(avcodec_send_frame(&encoder, frame), "frame");
    const Packet packet(there(av_packet_alloc(), "memory"));
    for (;;) {
        const int code = avcodec_receive_packet(&encoder, packet.get());
        if (code == AVERROR(EAGAIN) || code == AVERROR_EOF)
            return;
        checked(code, "packet");
        av_packet_rescale_ts(packet.get(), encoder.time_base, stream.time_base);
        packet->stream_index = stream.index;
        if (packet->duration == 0) // MP4 presents the last frame only for its stated duration
            packet->duration = av_rescale_q(1, usualInterval(encoder), stream.time_base);
        checked(av_interleaved_write_frame(&muxer, packet.get()), "packet");
    }
}

AVStream& addStream(AVFormatContext& muxer, const AVCodecContext& encoder)
{
    AVStream* const stream = there(avformat_new_stream(&muxer, nullptr), "memory");
    stream->time_base = encoder.time_base;
    stream->avg_frame_rate = encoder.framerate;
    checked(avcodec_parameters_from_context(stream->codecpar, &encoder), "stream");
    return *stream;
}

Encoder openSoundEncoder()
{
    const AVCodec* const codec = there(avcodec_find_encoder(AV_CODEC_ID_PCM_S16LE), "encoder");
    Encoder encoder(there(avcodec_alloc_context3(codec), "memory"));
    encoder->sample_fmt = AV_SAMPLE_FMT_S16;
    encoder->sample_rate = kSoundRate;
    encoder->time_base = {1, kSoundRate};
    encoder->ch_layout = AV_CHANNEL_LAYOUT_MONO;
    checked(avcodec_open2(encoder.get(), codec, nullptr), "encoder");
    return encoder;
}

void encodeSecondOfSound(AVFormatContext& muxer, const AVStream& stream, AVCodecContext& encoder)
{
    const Frame frame(there(av_frame_alloc(), "memory"));
    frame->format = encoder.sample_fmt;
    frame->nb_samples = kSoundRate;
    frame->sample_rate = kSoundRate;
    frame->ch_layout = encoder.ch_layout;
    checked(av_frame_get_buffer(frame.get(), 0), "memory");
    auto* const samples = reinterpret_cast<std::int16_t*>(frame->data[0]);
    for (int i = 0; i < kSoundRate; ++i)
        samples[i] = static_cast<std::int16_t>(i % 40 < 20 ? 3000 : -3000); // a tone of 200 Hz
    frame->pts = 0;
    encode(muxer, stream, encoder, frame.get());
    encode(muxer, stream, encoder, nullptr);
}

void checkSettings(_Size<int> size, std::size_t frames, const VideoFileSettings& settings)
{
    if (size.width <= 0 || size.height <= 0 || size.width % 2 != 0 || size.height % 2 != 0)
        throw std::invalid_argument("the size of a video is " + std::to_string(size.width) + " x " +
                                    std::to_string(size.height) + ", but both sides must be even");
    if (!settings.timesMs.empty() && settings.timesMs.size() != frames)
        throw std::invalid_argument("VideoFileSettings.timesMs has " + std::to_string(settings.timesMs.size()) +
                                    " times for " + std::to_string(frames) + " frames");
}

std::unique_ptr<SwsContext, ScalerCloser> converterFor(const AVCodecContext& encoder, const VideoFileSettings& settings)
{
    std::unique_ptr<SwsContext, ScalerCloser> converter(there(
        sws_getContext(encoder.width, encoder.height, AV_PIX_FMT_BGR24, encoder.width, encoder.height, encoder.pix_fmt,
                       SWS_BICUBIC | SWS_ACCURATE_RND | SWS_FULL_CHR_H_INP, nullptr, nullptr, nullptr),
        "colour conversion"));
    const int matrix = settings.matrix == VideoMatrix::Bt709 ? SWS_CS_ITU709 : SWS_CS_ITU601;
    checked(sws_setColorspaceDetails(converter.get(), sws_getCoefficients(matrix), 1, sws_getCoefficients(matrix),
                                     settings.fullRange ? 1 : 0, 0, 1 << 16, 1 << 16),
            "colour conversion");
    return converter;
}

void encodeFrames(AVFormatContext& muxer, const AVStream& stream, AVCodecContext& encoder, std::size_t frames,
                  const DrawVideoFrame& draw, const VideoFileSettings& settings)
{
    const auto converter = converterFor(encoder, settings);
    const Frame frame(there(av_frame_alloc(), "memory"));
    frame->format = encoder.pix_fmt;
    frame->width = encoder.width;
    frame->height = encoder.height;
    checked(av_frame_get_buffer(frame.get(), 0), "memory");
    // The converter reads whole vectors, past the end of the last row.
    std::vector<std::uint8_t> pixels(static_cast<std::size_t>(encoder.width) *
                                         static_cast<std::size_t>(encoder.height) * kBytesPerPixel +
                                     AV_INPUT_BUFFER_PADDING_SIZE);
    for (std::size_t i = 0; i < frames; ++i) {
        draw(i, pixels.data());
        checked(av_frame_make_writable(frame.get()), "memory"); // the encoder may still use the last one
        const std::uint8_t* const rows[] = {pixels.data()};
        const int stride[] = {encoder.width * kBytesPerPixel};
        checked(sws_scale(converter.get(), rows, stride, 0, encoder.height, frame->data, frame->linesize),
                "colour conversion");
        frame->pts = settings.timesMs.empty() ? static_cast<std::int64_t>(i) : settings.timesMs[i];
        frame->quality = encoder.global_quality;
        encode(muxer, stream, encoder, frame.get());
    }
    encode(muxer, stream, encoder, nullptr);
}

} // namespace

void writeVideo(const std::filesystem::path& path, _Size<int> size, std::size_t frames, const DrawVideoFrame& draw,
                const VideoFileSettings& settings)
{
    checkSettings(size, frames, settings);
    const Muxer muxer = openMuxer(path);
    Encoder soundEncoder;
    const AVStream* soundStream = nullptr;
    if (settings.sound) {
        soundEncoder = openSoundEncoder();
        soundStream = &addStream(*muxer, *soundEncoder);
    }
    const Encoder encoder = openEncoder(*muxer, size, settings);
    AVStream& stream = addStream(*muxer, *encoder);
    writeDisplayMatrix(stream, settings);
    checked(avformat_write_header(muxer.get(), nullptr), "header");
    if (soundStream != nullptr)
        encodeSecondOfSound(*muxer, *soundStream, *soundEncoder);
    encodeFrames(*muxer, stream, *encoder, frames, draw, settings);
    checked(av_write_trailer(muxer.get()), "trailer");
}

void writeSound(const std::filesystem::path& path)
{
    const Muxer muxer = openMuxer(path);
    const Encoder encoder = openSoundEncoder();
    const AVStream& stream = addStream(*muxer, *encoder);
    checked(avformat_write_header(muxer.get(), nullptr), "header");
    encodeSecondOfSound(*muxer, stream, *encoder);
    checked(av_write_trailer(muxer.get()), "trailer");
}

void drawFrameNumber(std::uint8_t* bgr, _Size<int> size, std::uint32_t number)
{
    const std::uint32_t scrambled = number ^ kScramble;
    std::uint32_t parity = 0;
    for (std::uint32_t bit = 0; bit < kParityBit; ++bit)
        parity ^= scrambled >> bit & 1u;
    const std::uint32_t fields = scrambled | parity << kParityBit;
    for (int y = 0; y < size.height; ++y)
        for (int x = 0; x < size.width; ++x, bgr += kBytesPerPixel) {
            const int field = y * kFields / size.height * kFields + x * kFields / size.width;
            const std::uint8_t value = (fields >> field & 1u) != 0 ? 255 : 0;
            std::fill_n(bgr, kBytesPerPixel, value);
        }
}

std::optional<std::uint32_t> readFrameNumber(const std::uint8_t* bgr, _Size<int> size)
{
    std::uint32_t fields = 0;
    std::uint32_t whites = 0;
    for (int field = 0; field < kFields * kFields; ++field) {
        // The middle of the field: its edges are blurred.
        const int x = (2 * (field % kFields) + 1) * size.width / (2 * kFields);
        const int y = (2 * (field / kFields) + 1) * size.height / (2 * kFields);
        const std::uint8_t green = bgr[(static_cast<std::ptrdiff_t>(y) * size.width + x) * kBytesPerPixel + 1];
        if (green >= kWhiteThreshold) {
            fields |= 1u << field;
            ++whites;
        }
    }
    if (whites % 2 != 0)
        return std::nullopt;
    return (fields & ~(1u << kParityBit)) ^ kScramble;
}

} // namespace orvo::scenes
