// Any bytes as a picture file: opened as bracket operations do, with truncated parts filled, then read for its metadata
// and for a thumbnail.
#include "fuzz_target.hpp"

#include <orvo_common/failure.hpp>
#include <orvo_common/memory_manager.hpp>
#include <orvo_core/parallel.hpp>
#include <orvo_io/image_reader.hpp>

#include <algorithm>
#include <cmath>

namespace {

using namespace orvo;
using fuzz::require;

constexpr std::int64_t kMostPixels = 64 * 1024; // small, so that a run spends more time on headers than on pixels
constexpr int kThumbnailSide = 16;
constexpr auto kFillCutOff = static_cast<ImageReaderOpenFlag>(static_cast<int>(ImageReaderOpenFlag::Bracket) &
                                                              ~static_cast<int>(ImageReaderOpenFlag::Complete));

void checkPixels(const _ImageData<PixelRGB<float>>& picture)
{
    require(picture.width() > 0 && picture.height() > 0, "a picture has pixels");
    const float* const samples = &picture.data()->r;
    for (std::size_t i = 0; i < picture.pixelCount() * 3; ++i)
        require(std::isfinite(samples[i]), "samples of a picture are finite");
}

void open(const std::filesystem::path& path, ImageReaderOpenFlag flags)
{
    ImageReadOptions options;
    options.maxPixels = kMostPixels;
    const auto image = ImageReader::instance().open({path, ""}, options, flags, nullptr, "", -1);
    if (!image) {
        const auto failure = lastFailure();
        require(failure.has_value(), "a refused picture has a reason");
        require(failure->file == path, "the reason names the file");
        require(!failure->sentence.empty() && failure->sentence.find('\n') == std::string::npos,
                "the reason is one line");
        return;
    }
    const auto pixels = image->imageData({}, {}, true);
    require(pixels != nullptr, "an opened picture has pixels");
    require(static_cast<std::int64_t>(pixels->pixelCount()) <= kMostPixels, "the pixel limit is observed");
    checkPixels(*pixels);
    require(image->metadata() != nullptr, "an opened picture has metadata");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static fuzz::MemoryFile file;
    // Kept planes would hide an access beyond a plane from the address sanitizer.
    MemoryManager::instance().setCacheLimit(0);
    const WorkerLimit single(1); // the same code path in every run
    file.write({data, size});
    const std::size_t liveBefore = MemoryManager::instance().liveBytes();
    open(file.path(), ImageReaderOpenFlag::Bracket);
    open(file.path(), kFillCutOff);
    (void)ImageReader::readMetadata(file.path());
    (void)isRawImageFile(file.path());
    if (const auto small = ImageReader::instance().getThumbnailBySide(file.path(), kThumbnailSide, true, nullptr, {})) {
        checkPixels(*small);
        require(std::max(small->width(), small->height()) == kThumbnailSide, "a thumbnail has the requested side");
    }
    require(MemoryManager::instance().liveBytes() == liveBefore, "every plane is freed");
    return 0;
}
