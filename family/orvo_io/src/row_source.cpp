#include "row_source.hpp"

#include <orvo_core/detail/vector_code.hpp>
#include <orvo_core/parallel.hpp>

#include <fcntl.h>
#include <sys/stat.h>
#include <tbb/task_arena.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <system_error>

namespace orvo::io {
namespace {

constexpr int kBatchRows = 32; // enough for all threads; cancel is polled after each batch

// Written so that NaN fails the first comparison and becomes 0.
ORVO_INLINE float clamped(float value) { return value > 0.0f ? (value < 1.0f ? value : 1.0f) : 0.0f; }

template <typename T>
ORVO_INLINE T quantised(float value, float full)
{
    return static_cast<T>(static_cast<std::int32_t>(clamped(value) * full + 0.5f));
}

template <typename T>
struct QuantiseLoop
{
    const float* in;
    std::size_t count;
    float full;
    T* out;

    ORVO_INLINE void operator()() const
    {
        const float* __restrict const from = in;
        T* __restrict const to = out;
        const std::size_t length = count;
        const float scale = full;
        for (std::size_t i = 0; i < length; ++i)
            to[i] = quantised<T>(from[i], scale);
    }
};

template <typename T>
void quantise(const float* in, std::size_t count, float full, T* out)
{
    runLoop(QuantiseLoop<T>{in, count, full, out});
}

// Integers: plain colours, then alpha.
template <typename T>
void fillRow(const float* in, const float* alpha, int width, float full, T* out)
{
    if (alpha == nullptr) {
        quantise(in, static_cast<std::size_t>(width) * 3, full, out);
        return;
    }
    for (int x = 0; x < width; ++x, in += 3, out += 4) {
        for (int c = 0; c < 3; ++c)
            out[c] = quantised<T>(in[c], full);
        out[3] = quantised<T>(alpha[x], full);
    }
}

// Linear light: colours times alpha, then alpha.
void fillRow(const float* in, const float* alpha, int width, float* out)
{
    const auto withoutNaN = [](float value) { return value == value ? value : 0.0f; };
    if (alpha == nullptr) {
        std::transform(in, in + static_cast<std::ptrdiff_t>(width) * 3, out, withoutNaN);
        return;
    }
    for (int x = 0; x < width; ++x, in += 3, out += 4) {
        out[3] = clamped(alpha[x]);
        for (int c = 0; c < 3; ++c)
            out[c] = withoutNaN(in[c]) * out[3];
    }
}

std::size_t sampleBytes(RowFormat format)
{
    return format == RowFormat::Bits8 ? 1 : format == RowFormat::Bits16 ? 2 : 4;
}

} // namespace

RowSource::RowSource(const _ImageData<PixelRGB<float>>& picture_, const std::shared_ptr<ColorProfile>& target,
                     RowFormat format_, const RunControl& run_, const _ImageData<float>* alpha_)
    : picture(picture_), alpha(alpha_), converter(picture.colorProfile(), 3, target), format(format_), run(run_),
      rowBytes(static_cast<std::size_t>(picture.width()) * channels() * sampleBytes(format)),
      batchRows(std::min(kBatchRows, picture.height())), batch(rowBytes * static_cast<std::size_t>(batchRows)),
      converted(static_cast<std::size_t>(picture.width()) * static_cast<std::size_t>(batchRows))
{}

const unsigned char* RowSource::row(int y)
{
    if (y < firstOfBatch || y >= firstOfBatch + inBatch)
        fill(y);
    return batch.data() + rowBytes * static_cast<std::size_t>(y - firstOfBatch);
}

void RowSource::fill(int first)
{
    run.throwIfCancelled();
    firstOfBatch = first;
    inBatch = std::min(batchRows, picture.height() - first);
    const int width = picture.width();
    const auto prepareRow = [&](int y) {
        PixelRGB<float>* const pixels = converted.data() + static_cast<std::ptrdiff_t>(y) * width;
        unsigned char* const out = batch.data() + rowBytes * static_cast<std::size_t>(y);
        converter.convert(&picture.row(first + y)->r, pixels, width);
        const float* const in = &pixels->r;
        const float* const cover = alpha != nullptr ? alpha->row(first + y) : nullptr;
        if (format == RowFormat::Bits8)
            fillRow(in, cover, width, 255.0f, out);
        else if (format == RowFormat::Bits16)
            fillRow(in, cover, width, 65535.0f, reinterpret_cast<std::uint16_t*>(out));
        else
            fillRow(in, cover, width, reinterpret_cast<float*>(out));
    };
    // Isolated: while waiting here, a thread must not start another iteration of an outer loop.
    tbb::this_task_arena::isolate([&] { forEachRow(inBatch, prepareRow); });
}

OutputFile::OutputFile(const std::filesystem::path& path_) : path(path_)
{
    errno = 0;
    // Readable too: libtiff reads back the directories it has written.
    int descriptor = ::open(path.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOCTTY, 0666);
    if (descriptor < 0)
        throw failure(errno, "cannot be opened");
    handle = ::fdopen(descriptor, "w+b");
    if (handle == nullptr) {
        const int error = errno;
        ::close(descriptor);
        throw failure(error, "cannot be opened");
    }
}

OutputFile::~OutputFile()
{
    if (handle != nullptr)
        std::fclose(handle);
    struct stat status = {};
    // Only removes a file, never a device.
    if (!finished && ::lstat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode))
        ::unlink(path.c_str());
}

void OutputFile::finish()
{
    errno = 0;
    const bool flushed = std::fflush(handle) == 0 && std::ferror(handle) == 0;
    const int flushError = errno;
    const bool closed = std::fclose(handle) == 0;
    handle = nullptr;
    if (!flushed || !closed)
        throw failure(!flushed ? flushError : errno, "cannot be written");
    finished = true;
}

FailureError OutputFile::failure(int systemError, const std::string& text) const
{
    return FailureError({kindOfSystemError(systemError, FailureKind::Internal), path,
                         systemError != 0 ? std::generic_category().message(systemError) : text});
}

} // namespace orvo::io
