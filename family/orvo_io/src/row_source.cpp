#include "row_source.hpp"

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

template <typename T>
void quantise(const float* in, std::size_t count, float full, T* out)
{
    for (std::size_t i = 0; i < count; ++i) {
        // Written so that NaN fails the first comparison and becomes 0.
        const float v = in[i] > 0.0f ? (in[i] < 1.0f ? in[i] : 1.0f) : 0.0f;
        out[i] = static_cast<T>(static_cast<std::int32_t>(v * full + 0.5f));
    }
}

std::size_t sampleBytes(RowFormat format)
{
    return format == RowFormat::Bits8 ? 1 : format == RowFormat::Bits16 ? 2 : 4;
}

} // namespace

RowSource::RowSource(const _ImageData<PixelRGB<float>>& picture_, const std::shared_ptr<ColorProfile>& target,
                     RowFormat format_, const RunControl& run_)
    : picture(picture_), converter(picture.colorProfile(), 3, target), format(format_), run(run_),
      rowBytes(static_cast<std::size_t>(picture.width()) * 3 * sampleBytes(format)),
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
    const auto samples = static_cast<std::size_t>(width) * 3;
    const auto prepareRow = [&](int y) {
        PixelRGB<float>* const pixels = converted.data() + static_cast<std::ptrdiff_t>(y) * width;
        unsigned char* const out = batch.data() + rowBytes * static_cast<std::size_t>(y);
        converter.convert(&picture.row(first + y)->r, pixels, width);
        const float* const in = &pixels->r;
        if (format == RowFormat::Bits8) {
            quantise(in, samples, 255.0f, out);
        } else if (format == RowFormat::Bits16) {
            quantise(in, samples, 65535.0f, reinterpret_cast<std::uint16_t*>(out));
        } else {
            auto* const floats = reinterpret_cast<float*>(out);
            for (std::size_t i = 0; i < samples; ++i)
                floats[i] = in[i] == in[i] ? in[i] : 0.0f;
        }
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
