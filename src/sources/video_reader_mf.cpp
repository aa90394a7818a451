// The video reader on Windows: Media Foundation's source reader.
#include "sources/video_reader.hpp"

#include <mfapi.h>
#include <mferror.h>
#include <mfidl.h>
#include <mfreadwrite.h>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#include <windows.h>
#include <wrl/client.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>

namespace orvo {
namespace {

using Microsoft::WRL::ComPtr;

constexpr ULONG kMediaFoundationVersion = 0x20070; // that of Windows 7 and later
constexpr auto kFirstVideoStream = static_cast<DWORD>(MF_SOURCE_READER_FIRST_VIDEO_STREAM);
constexpr auto kMediaSource = static_cast<DWORD>(MF_SOURCE_READER_MEDIASOURCE);
constexpr std::size_t kBytesPerPixel = 4; // RGB32: blue, green, red, unused
constexpr ULONG kCanSeek = 4;             // in the source's characteristics

// Not all SDK headers have these two, so they are defined here under other names. MF_MT_VIDEO_ROTATION: the clockwise
// rotation in degrees that makes the picture upright.
constexpr GUID kVideoRotation = {0xc380465d, 0x2271, 0x428c, {0x9b, 0x83, 0xec, 0xea, 0x3b, 0x4a, 0x85, 0xc1}};
// MF_SOURCE_READER_ENABLE_ADVANCED_VIDEO_PROCESSING
constexpr GUID kAdvancedVideoProcessing = {
    0x0f81da2c, 0xb537, 0x4672, {0xa8, 0xb2, 0xa6, 0x81, 0xb1, 0x73, 0x07, 0xa3}};

// Queries to the first video stream of the file.
struct NativeProperties
{
    int width = 0;
    int height = 0;
    UINT32 rotationDegrees = 0;
};

UINT32 high32(UINT64 pair) { return static_cast<UINT32>(pair >> 32); }
UINT32 low32(UINT64 pair) { return static_cast<UINT32>(pair & 0xffffffffu); }

// A PROPVARIANT that clears itself.
struct Variant
{
    PROPVARIANT value;
    Variant() { PropVariantInit(&value); }
    ~Variant() { PropVariantClear(&value); }
    Variant(const Variant&) = delete;
    Variant& operator=(const Variant&) = delete;
};

// The pixels of a sample, locked.
class LockedPixels
{
public:
    explicit LockedPixels(IMFMediaBuffer* mediaBuffer) : buffer(mediaBuffer)
    {
        if (FAILED(buffer->Lock(&first, nullptr, &length)))
            first = nullptr;
    }
    ~LockedPixels()
    {
        if (first != nullptr)
            buffer->Unlock();
    }
    LockedPixels(const LockedPixels&) = delete;
    LockedPixels& operator=(const LockedPixels&) = delete;

    [[nodiscard]] BYTE* data() const { return first; }
    [[nodiscard]] std::size_t bytes() const { return length; }

private:
    IMFMediaBuffer* buffer;
    BYTE* first = nullptr;
    DWORD length = 0;
};

void turnUpright(cv::Mat& picture, UINT32 rotationDegrees)
{
    if (rotationDegrees == 90)
        cv::rotate(picture, picture, cv::ROTATE_90_CLOCKWISE);
    else if (rotationDegrees == 180)
        cv::rotate(picture, picture, cv::ROTATE_180);
    else if (rotationDegrees == 270)
        cv::rotate(picture, picture, cv::ROTATE_90_COUNTERCLOCKWISE);
}

// Owns one startup of Media Foundation and one reference to its reader.
class MediaFoundationReader final : public VideoReader
{
public:
    MediaFoundationReader() : started(MFStartup(kMediaFoundationVersion, 0)) {}
    ~MediaFoundationReader() override
    {
        reader.Reset();
        if (SUCCEEDED(started))
            MFShutdown();
    }

    [[nodiscard]] HRESULT startUp() const { return started; }
    // `code` is the logged value: the result of the call that failed, or of setting the media type if a later call
    // failed.
    [[nodiscard]] bool open(const std::wstring& path, HRESULT& code);

    [[nodiscard]] VideoFrameRate frameRate() override;
    [[nodiscard]] bool readSample(cv::Mat& out) override;
    [[nodiscard]] bool seekToStart() override;

private:
    [[nodiscard]] HRESULT createReader(const std::wstring& path, const GUID& processing);
    [[nodiscard]] HRESULT nativeType(ComPtr<IMFMediaType>& type) const;
    [[nodiscard]] NativeProperties nativeProperties() const;

    HRESULT started;
    ComPtr<IMFSourceReader> reader;
};

HRESULT MediaFoundationReader::createReader(const std::wstring& path, const GUID& processing)
{
    ComPtr<IMFAttributes> attributes;
    HRESULT result = MFCreateAttributes(attributes.GetAddressOf(), 0);
    if (SUCCEEDED(result))
        result = attributes->SetUINT32(processing, 1);
    if (SUCCEEDED(result))
        result = MFCreateSourceReaderFromURL(path.c_str(), attributes.Get(), reader.ReleaseAndGetAddressOf());
    return result;
}

HRESULT outputType(ComPtr<IMFMediaType>& type)
{
    HRESULT result = MFCreateMediaType(type.GetAddressOf());
    if (SUCCEEDED(result))
        result = type->SetGUID(MF_MT_MAJOR_TYPE, MFMediaType_Video);
    if (SUCCEEDED(result))
        result = type->SetGUID(MF_MT_SUBTYPE, MFVideoFormat_RGB32);
    return result;
}

HRESULT MediaFoundationReader::nativeType(ComPtr<IMFMediaType>& type) const
{
    return reader->GetNativeMediaType(kFirstVideoStream, 0, type.ReleaseAndGetAddressOf());
}

bool MediaFoundationReader::open(const std::wstring& path, HRESULT& code)
{
    code = createReader(path, MF_SOURCE_READER_ENABLE_VIDEO_PROCESSING);
    if (FAILED(code))
        return false;
    ComPtr<IMFMediaType> type;
    code = outputType(type);
    if (FAILED(code))
        return false;
    code = reader->SetCurrentMediaType(kFirstVideoStream, nullptr, type.Get());
    if (FAILED(code))
        return false;

    ComPtr<IMFMediaType> native;
    if (FAILED(nativeType(native)))
        return false;
    UINT32 rotationDegrees = 0; // a file without the attribute is upright
    const HRESULT status = native->GetUINT32(kVideoRotation, &rotationDegrees);
    if (FAILED(status) && status != MF_E_ATTRIBUTENOTFOUND)
        return false;
    if (rotationDegrees != 0 && rotationDegrees != 180)
        return true;
    // Only files with a quarter turn use the basic video processing.
    reader.Reset();
    return SUCCEEDED(createReader(path, kAdvancedVideoProcessing)) &&
           SUCCEEDED(reader->SetCurrentMediaType(kFirstVideoStream, nullptr, type.Get()));
}

VideoFrameRate MediaFoundationReader::frameRate()
{
    ComPtr<IMFMediaType> native;
    UINT64 fraction = 0;
    if (FAILED(nativeType(native)) || FAILED(native->GetUINT64(MF_MT_FRAME_RATE, &fraction)))
        return {};
    return {high32(fraction), low32(fraction)};
}

NativeProperties MediaFoundationReader::nativeProperties() const
{
    NativeProperties properties;
    ComPtr<IMFMediaType> native;
    if (FAILED(nativeType(native)))
        return properties;
    UINT64 size = 0;
    if (SUCCEEDED(native->GetUINT64(MF_MT_FRAME_SIZE, &size))) {
        properties.width = static_cast<int>(high32(size));
        properties.height = static_cast<int>(low32(size));
    }
    if (FAILED(native->GetUINT32(kVideoRotation, &properties.rotationDegrees)))
        properties.rotationDegrees = 0;
    return properties;
}

bool MediaFoundationReader::readSample(cv::Mat& out)
{
    const NativeProperties properties = nativeProperties();
    DWORD streamFlags = 0;
    ComPtr<IMFSample> sample;
    const HRESULT read =
        reader->ReadSample(kFirstVideoStream, 0, nullptr, &streamFlags, nullptr, sample.GetAddressOf());
    if (FAILED(read) || !sample)
        return false;
    ComPtr<IMFMediaBuffer> buffer;
    if (FAILED(sample->ConvertToContiguousBuffer(buffer.GetAddressOf())))
        return false;
    const LockedPixels pixels(buffer.Get());
    cv::Mat picture; // remains empty without a lock, and the conversion throws
    if (pixels.data() != nullptr) {
        const std::size_t needed =
            static_cast<std::size_t>(properties.width) * static_cast<std::size_t>(properties.height) * kBytesPerPixel;
        if (properties.width <= 0 || properties.height <= 0 || pixels.bytes() < needed)
            return false; // fewer pixels than the file claims
        picture = cv::Mat(properties.height, properties.width, CV_8UC4, pixels.data());
    }
    cv::cvtColor(picture, out, cv::COLOR_BGRA2BGR);
    turnUpright(out, properties.rotationDegrees);
    return true;
}

bool MediaFoundationReader::seekToStart()
{
    Variant variant;
    const HRESULT status =
        reader->GetPresentationAttribute(kMediaSource, MF_SOURCE_READER_MEDIASOURCE_CHARACTERISTICS, &variant.value);
    if (FAILED(status) && variant.value.vt == VT_UI4 && (variant.value.ulVal & kCanSeek) != 0)
        return false;
    PropVariantClear(&variant.value);
    variant.value.vt = VT_I8;
    variant.value.hVal.QuadPart = 0;
    return SUCCEEDED(reader->SetCurrentPosition(GUID_NULL, variant.value));
}

} // namespace

OpenedVideo openVideoReader(const std::wstring& path)
{
    auto reader = std::make_unique<MediaFoundationReader>();
    if (FAILED(reader->startUp()))
        return {VideoOpening::NoDecoder, static_cast<std::int32_t>(reader->startUp()), nullptr};
    HRESULT code = S_OK;
    if (!reader->open(path, code))
        return {VideoOpening::Unreadable, static_cast<std::int32_t>(code), nullptr};
    return {VideoOpening::Opened, 0, std::move(reader)};
}

} // namespace orvo
