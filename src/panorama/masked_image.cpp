#include <orvo_extensions/masked_image.hpp>

#include <algorithm>
#include <limits>
#include <stdexcept>
#include <string>

namespace {

std::size_t pixelCount(int columns, int rows)
{
    constexpr std::int64_t kMostPixels = std::numeric_limits<std::int32_t>::max(); // the start of a run has 32 bits
    const std::int64_t pixels = std::int64_t(columns) * rows;
    if (columns < 0 || rows < 0 || pixels > kMostPixels)
        throw std::invalid_argument("MaskedImage: " + std::to_string(columns) + " x " + std::to_string(rows) +
                                    " pixels; sides of at least 0 and at most " + std::to_string(kMostPixels) +
                                    " pixels are possible");
    return static_cast<std::size_t>(pixels);
}

} // namespace

MaskedImage::MaskedImage() = default;

MaskedImage::MaskedImage(int columns, int rows)
    : imageWidth(columns), imageHeight(rows), pixels(pixelCount(columns, rows), pixel_t(0.0f, 0.0f, 0.0f))
{}

MaskedImage::~MaskedImage() = default;
MaskedImage::MaskedImage(const MaskedImage&) = default;
MaskedImage& MaskedImage::operator=(const MaskedImage&) = default;

void MaskedImage::commit_changes() {}

MaskedImageExt::MaskedImageExt() = default;
MaskedImageExt::MaskedImageExt(int columns, int rows) : MaskedImage(columns, rows) {}
MaskedImageExt::~MaskedImageExt() = default;
MaskedImageExt::MaskedImageExt(const MaskedImageExt&) = default;
MaskedImageExt& MaskedImageExt::operator=(const MaskedImageExt&) = default;

void MaskedImageExt::commit_changes() { init_points(); }

std::shared_ptr<MaskedImageExt> MaskedImageExt::copy() const { return std::make_shared<MaskedImageExt>(*this); }

void MaskedImageExt::init_points()
{
    constexpr int kLongestRun = std::numeric_limits<std::int16_t>::max();
    points.clear(); // each walsh_t is constructed in place, since most of it is uninitialised and must not be copied
    points.resize(pixelCount(width(), height()));
    runs.clear();
    for (int y = 0; y < height(); ++y) {
        for (int x = 0; x < width(); ++x) {
            if (!isMasked(x, y))
                continue;
            const int begin = x;
            const int last = std::min(width() - begin, kLongestRun) + begin - 1;
            while (x < last && isMasked(x + 1, y))
                ++x;
            runs.push_back({begin + y * width(), static_cast<std::int16_t>(x - begin + 1)});
        }
    }
}
