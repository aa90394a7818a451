// Picture files for the tests, written directly with the codec libraries where our own writer lacks a kind.
#pragma once

#include "support/temporary_folder.hpp"

#include <orvo_core/image.hpp>
#include <orvo_io/image_reader.hpp>
#include <orvo_io/image_writer.hpp>

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace orvo::test {

using Picture = _ImageData<PixelRGB<float>>;
using Bytes = std::vector<unsigned char>;

// Smooth colours with a distinct value at each corner, in sRGB, multiples of 1/255 if `steps`.
std::shared_ptr<Picture> gradient(int width, int height, int steps = 0);
std::shared_ptr<Picture> uniform(int width, int height, float r, float g, float b);

// Largest difference of a sample, reported with its position; NaN counts as infinite.
double worstDifference(const Picture& a, const Picture& b);

Bytes readBytes(const std::filesystem::path& path);
void writeBytes(const std::filesystem::path& path, const Bytes& bytes);

// EXIF blocks. A zero leaves the tag out.
struct ExifTags
{
    int orientation = 0;
    std::uint32_t timeAbove = 0, timeBelow = 1;
    std::uint32_t apertureAbove = 0, apertureBelow = 1;
    int iso = 0;
    bool hasBias = false;
    std::int32_t biasAbove = 0, biasBelow = 1;
    std::string make{};
};
Bytes exifBlock(const ExifTags& tags);

// JPEG files by libjpeg: `samples` has `channels` (1, 3 or 4) interleaved; 4 are written as CMYK with Adobe's marker
// if `adobe`, inverted as Adobe does it.
struct JpegKind
{
    int channels = 3;
    bool adobe = false;
    bool progressive = false;
    int quality = 100;
    Bytes exif{};
    Bytes icc{};
};
void makeJpeg(const std::filesystem::path& path, int width, int height, const Bytes& samples, const JpegKind& kind);

// PNG by libpng. `samples`: rows as the format stores them, 16 bit big endian.
struct PngKind
{
    int colorType = 2; // as in the header chunk
    int bits = 8;
    bool interlaced = false;
    std::vector<std::uint8_t> palette{}; // red, green, blue
    std::vector<std::uint8_t> paletteAlpha{};
    Bytes icc{};
};
void makePng(const std::filesystem::path& path, int width, int height, const Bytes& samples, const PngKind& kind);

// TIFF by libtiff, uncompressed samples interleaved in native order.
struct TiffKind
{
    int channels = 3;
    int bits = 8;
    bool floats = false;
    int photometric = 2; // RGB
    bool tiled = false;
    int tileSide = 32; // a multiple of 16
    bool planar = false;
    int alpha = -1; // 1 associated, 2 not
    int orientation = 1;
    std::vector<std::uint16_t> palette{}; // 256 red, 256 green, 256 blue
    Bytes icc{};
};
void makeTiff(const std::filesystem::path& path, int width, int height, const Bytes& samples, const TiffKind& kind);

// Lossless WebP from RGBA; `exif` may be empty.
void makeWebP(const std::filesystem::path& path, int width, int height, const Bytes& rgba);

// Opens like the bracket operations.
std::shared_ptr<Image> openFile(const std::filesystem::path& path,
                                ImageReaderOpenFlag flags = ImageReaderOpenFlag::Bracket,
                                std::shared_ptr<ColorProfile> profile = nullptr);
std::shared_ptr<Picture> pixelsOf(const std::shared_ptr<Image>& image);
// Opens and converts to sRGB.
std::shared_ptr<Picture> openAsSRGB(const std::filesystem::path& path,
                                    ImageReaderOpenFlag flags = ImageReaderOpenFlag::Bracket);

// The folder of real pictures; empty if there is none.
std::filesystem::path testData();

} // namespace orvo::test
