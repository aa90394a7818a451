#include "tiff_stream.hpp"

#include <cerrno>
#include <new>
#include <string_view>

namespace orvo::io {

TiffStream::TiffStream(std::FILE* stream_, const char* mode, std::int64_t largestAllocation) : stream(stream_)
{
    TIFFOpenOptions* const options = TIFFOpenOptionsAlloc();
    if (options == nullptr)
        throw std::bad_alloc();
    TIFFOpenOptionsSetMaxSingleMemAlloc(options, static_cast<tmsize_t>(largestAllocation));
    TIFFOpenOptionsSetErrorHandlerExtR(options, onError, this);
    TIFFOpenOptionsSetWarningHandlerExtR(options, onWarning, this);
    tiff = TIFFClientOpenExt(
        "picture", mode, this, read, write, seek, [](thandle_t) { return 0; }, size,
        [](thandle_t, void**, toff_t*) { return 0; }, [](thandle_t, void*, toff_t) {}, options);
    TIFFOpenOptionsFree(options);
}

TiffStream::~TiffStream() { close(); }

bool TiffStream::close()
{
    if (tiff != nullptr) {
        if ((TIFFGetMode(tiff) & 3) != 0)
            TIFFFlush(tiff);
        TIFFClose(tiff);
        tiff = nullptr;
    }
    return message.empty() && failed == 0;
}

tmsize_t TiffStream::read(thandle_t self, void* bytes, tmsize_t count)
{
    return static_cast<tmsize_t>(
        std::fread(bytes, 1, static_cast<std::size_t>(count), static_cast<TiffStream*>(self)->stream));
}

tmsize_t TiffStream::write(thandle_t self, void* bytes, tmsize_t count)
{
    auto* const own = static_cast<TiffStream*>(self);
    errno = 0;
    const std::size_t written = std::fwrite(bytes, 1, static_cast<std::size_t>(count), own->stream);
    if (written != static_cast<std::size_t>(count) && own->failed == 0)
        own->failed = errno != 0 ? errno : EIO;
    return static_cast<tmsize_t>(written);
}

toff_t TiffStream::seek(thandle_t self, toff_t offset, int whence)
{
    auto* const own = static_cast<TiffStream*>(self);
    errno = 0;
    if (fseeko(own->stream, static_cast<off_t>(offset), whence) != 0) {
        // Seeking flushes the buffer.
        if (own->failed == 0 && (errno == ENOSPC || errno == EIO || errno == EDQUOT || errno == EFBIG))
            own->failed = errno;
        return static_cast<toff_t>(-1);
    }
    return static_cast<toff_t>(ftello(own->stream));
}

toff_t TiffStream::size(thandle_t self)
{
    auto* const own = static_cast<TiffStream*>(self);
    const off_t here = ftello(own->stream);
    fseeko(own->stream, 0, SEEK_END);
    const off_t end = ftello(own->stream);
    fseeko(own->stream, here, SEEK_SET);
    return static_cast<toff_t>(end);
}

int TiffStream::onWarning(TIFF*, void* self, const char*, const char* format, va_list arguments)
{
    // libtiff skips a tag it cannot read, and reports it in a warning of this form.
    auto* const own = static_cast<TiffStream*>(self);
    char text[256];
    std::vsnprintf(text, sizeof(text), format, arguments);
    if (own->missing.empty() && std::string_view(text).find("IO error during reading of") != std::string_view::npos)
        own->missing = text;
    return 1;
}

int TiffStream::onError(TIFF*, void* self, const char* module, const char* format, va_list arguments)
{
    auto* const own = static_cast<TiffStream*>(self);
    if (own->message.empty()) {
        char text[256];
        std::vsnprintf(text, sizeof(text), format, arguments);
        own->message = (module != nullptr ? std::string(module) + ": " : std::string()) + text;
    }
    return 1;
}

} // namespace orvo::io
