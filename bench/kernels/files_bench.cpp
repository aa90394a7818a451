// Writing picture files, and the text of requests. ORVO_BENCH_PICTURE names a photograph to write; without it a
// synthetic one with fine grain is written, which compresses worse.
#include "measure.hpp"

#include <orvo_core/color_profile.hpp>
#include <orvo_core/image.hpp>
#include <orvo_io/base64_image.hpp>
#include <orvo_io/image_reader.hpp>
#include <orvo_io/image_writer.hpp>

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <memory>

namespace {

using namespace orvo::bench;
using Picture = orvo::_ImageData<orvo::PixelRGB<float>>;

std::shared_ptr<Picture> photograph(orvo::_Size<int> size)
{
    if (const char* const path = std::getenv("ORVO_BENCH_PICTURE"))
        if (const auto image =
                orvo::ImageReader::instance().open({path, ""}, {}, orvo::ImageReaderOpenFlag::Bracket, nullptr, "", -1))
            return image->imageData(size, {}, true);
    auto picture = std::make_shared<Picture>(size, orvo::ColorProfileType::melissaRGB());
    fill(&picture->data()->r, 3 * picture->pixelCount(), 3 * static_cast<std::size_t>(size.width));
    return picture;
}

// Milliseconds of wall time for `call`; "MB" is the size of what it makes.
template <typename Call>
void timeWriting(benchmark::State& state, const Picture& picture, const Call& call)
{
    double bytes = 0;
    for (auto _ : state)
        bytes = static_cast<double>(call());
    state.counters["Mpx/s"] = benchmark::Counter(static_cast<double>(picture.pixelCount()) * 1e-6,
                                                 benchmark::Counter::kIsIterationInvariantRate);
    state.counters["MB"] = bytes * 1e-6;
}

void writeFile(benchmark::State& state, const char* extension, int bits)
{
    const auto picture = photograph({6000, 4000});
    const auto path =
        std::filesystem::temp_directory_path() / ("orvo_files_bench_" + std::to_string(::getpid()) + "." + extension);
    orvo::ImageWriteSettings settings = orvo::writeSettingsForPath(path);
    settings.bits = bits;
    timeWriting(state, *picture, [&] {
        orvo::writeImage(path, *picture, settings);
        return std::filesystem::file_size(path);
    });
    std::filesystem::remove(path);
}
BENCHMARK_CAPTURE(writeFile, tiff16, "tif", 16)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(writeFile, tiff8, "tif", 8)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(writeFile, png16, "png", 16)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(writeFile, png8, "png", 8)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(writeFile, jpeg, "jpg", 8)->UseRealTime()->Unit(benchmark::kMillisecond);

// The largest request: 8 megapixels.
void requestText(benchmark::State& state)
{
    const std::shared_ptr<const Picture> picture = photograph({3464, 2309});
    timeWriting(state, *picture,
                [&] { return orvo::imageToBase64(picture, orvo::Base64EncodeParameters(0, 8)).size(); });
}
BENCHMARK(requestText)->UseRealTime()->Unit(benchmark::kMillisecond);

} // namespace
