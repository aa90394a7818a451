// Filters and deflate levels for the text of a request: bench_png_effort PICTURE. Encodes 8 megapixels of it as an
// 8-bit PNG with libpng, on one thread, and prints a Markdown table of megabytes and CPU seconds; the last line is
// imageToBase64(), whose CPU seconds are those of all threads.
#include "bench_pictures.hpp"

#include <orvo_io/base64_image.hpp>

#include <png.h>

#include <cmath>
#include <cstdio>
#include <ctime>
#include <exception>
#include <new>
#include <stdexcept>
#include <vector>

namespace {

using orvo::bench::Picture;
using Bytes = std::vector<unsigned char>;

constexpr double kPixels = 8e6;

double cpuSeconds() { return static_cast<double>(std::clock()) / CLOCKS_PER_SEC; }

Bytes samplesOf(const Picture& picture)
{
    Bytes bytes;
    bytes.reserve(3 * picture.pixelCount());
    for (std::size_t i = 0; i < picture.pixelCount(); ++i)
        for (const float v : {picture.data()[i].r, picture.data()[i].g, picture.data()[i].b})
            bytes.push_back(static_cast<unsigned char>(std::lround(255.0f * std::fmin(1.0f, std::fmax(0.0f, v)))));
    return bytes;
}

std::size_t encodedBytes(const Bytes& samples, orvo::_Size<int> size, int filters, int level)
{
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png != nullptr ? png_create_info_struct(png) : nullptr;
    if (info == nullptr)
        throw std::bad_alloc();
    std::size_t total = 0;
    png_set_write_fn(
        png, &total, [](png_structp p, png_bytep, png_size_t n) { *static_cast<std::size_t*>(png_get_io_ptr(p)) += n; },
        [](png_structp) {});
    png_set_IHDR(png, info, static_cast<png_uint_32>(size.width), static_cast<png_uint_32>(size.height), 8,
                 PNG_COLOR_TYPE_RGB, PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    png_set_filter(png, PNG_FILTER_TYPE_BASE, filters);
    png_set_compression_level(png, level);
    png_write_info(png, info);
    for (int y = 0; y < size.height; ++y)
        png_write_row(png, samples.data() + 3 * static_cast<std::size_t>(y) * static_cast<std::size_t>(size.width));
    png_write_end(png, info);
    png_destroy_write_struct(&png, &info);
    return total;
}

void row(const char* filters, const char* level, std::size_t bytes, double seconds)
{
    std::printf("| %s | %s | %.2f | %.2f |\n", filters, level, static_cast<double>(bytes) * 1e-6, seconds);
    std::fflush(stdout);
}

} // namespace

int main(int argc, char** argv)
try {
    if (argc != 2) {
        std::fputs("usage: bench_png_effort PICTURE\n", stderr);
        return 2;
    }
    const auto whole = orvo::bench::loadInSRGB(argv[1]);
    const double scale = std::sqrt(kPixels / static_cast<double>(whole->pixelCount()));
    const orvo::_Size<int> size(static_cast<int>(whole->width() * scale), static_cast<int>(whole->height() * scale));
    const std::shared_ptr<const Picture> picture = whole->resize(size, {}, true);
    const Bytes samples = samplesOf(*picture);
    struct Filters
    {
        const char* name;
        int flags;
    };
    constexpr Filters kSets[] = {{"Sub", PNG_FILTER_SUB},
                                 {"Up", PNG_FILTER_UP},
                                 {"Sub or Up", PNG_FILTER_SUB | PNG_FILTER_UP},
                                 {"Sub, Up or Average", PNG_FILTER_SUB | PNG_FILTER_UP | PNG_FILTER_AVG},
                                 {"Paeth", PNG_FILTER_PAETH},
                                 {"any", PNG_ALL_FILTERS}};
    std::puts("| filter of a row | level | MB | CPU seconds |\n|---|---|---|---|");
    for (const Filters& filters : kSets)
        for (const int level : {1, 3, 6}) {
            const double start = cpuSeconds();
            const std::size_t bytes = encodedBytes(samples, size, filters.flags, level);
            row(filters.name, std::to_string(level).c_str(), bytes, cpuSeconds() - start);
        }
    const double start = cpuSeconds();
    const std::size_t characters = orvo::imageToBase64(picture, {0, 8}).size();
    row("imageToBase64", "3", characters / 4 * 3, cpuSeconds() - start);
    return 0;
} catch (const std::exception& error) {
    std::fprintf(stderr, "bench_png_effort: %s\n", error.what());
    return 1;
}
