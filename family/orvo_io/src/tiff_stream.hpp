// libtiff on a C stream, with its messages stored instead of printed.
#pragma once

#include <tiffio.h>

#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>

namespace orvo::io {

class TiffStream
{
public:
    // `mode` as for TIFFOpen. `stream` stays the caller's. handle() is empty if libtiff refuses the file.
    TiffStream(std::FILE* stream, const char* mode, std::int64_t largestAllocation);
    ~TiffStream();
    TiffStream(const TiffStream&) = delete;
    TiffStream& operator=(const TiffStream&) = delete;

    [[nodiscard]] TIFF* handle() const { return tiff; }
    // The first error, empty if there was none.
    [[nodiscard]] const std::string& error() const { return message; }
    // A tag whose value is beyond the end of the file; empty if there is none.
    [[nodiscard]] const std::string& missingValue() const { return missing; }
    // errno of the first failed write, 0 for none.
    [[nodiscard]] int systemError() const { return failed; }
    // Flushes and closes; false if that failed.
    bool close();

private:
    static tmsize_t read(thandle_t self, void* bytes, tmsize_t count);
    static tmsize_t write(thandle_t self, void* bytes, tmsize_t count);
    static toff_t seek(thandle_t self, toff_t offset, int whence);
    static toff_t size(thandle_t self);
    static int onWarning(TIFF* tiff, void* self, const char* module, const char* format, va_list arguments);
    static int onError(TIFF* tiff, void* self, const char* module, const char* format, va_list arguments);

    std::FILE* stream;
    TIFF* tiff = nullptr;
    std::string message;
    std::string missing;
    int failed = 0;
};

} // namespace orvo::io
