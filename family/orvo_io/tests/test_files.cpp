#include "test_files.hpp"

#include <exiv2/exiv2.hpp>
#include <jpeglib.h>
#include <png.h>
#include <tiffio.h>
#include <unistd.h>
#include <webp/encode.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <limits>
#include <stdexcept>

namespace orvo::test {

std::shared_ptr<Picture> gradient(int width, int height, int steps)
{
    auto picture = std::make_shared<Picture>(_Size<int>(width, height), ColorProfileType::sRGB());
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            const float u = static_cast<float>(x) / static_cast<float>(std::max(1, width - 1));
            const float v = static_cast<float>(y) / static_cast<float>(std::max(1, height - 1));
            PixelRGB<float> p = {0.1f + 0.8f * u, 0.1f + 0.8f * v, 0.2f + 0.3f * (1.0f - u) + 0.3f * v};
            if (steps > 0) {
                const auto stepped = [steps](float f) {
                    return std::round(f * static_cast<float>(steps)) / static_cast<float>(steps);
                };
                p = {stepped(p.r), stepped(p.g), stepped(p.b)};
            }
            picture->row(y)[x] = p;
        }
    return picture;
}

std::shared_ptr<Picture> uniform(int width, int height, float r, float g, float b)
{
    return std::make_shared<Picture>(_Size<int>(width, height), PixelRGB<float>{r, g, b}, ColorProfileType::sRGB());
}

double worstDifference(const Picture& a, const Picture& b)
{
    if (a.size() != b.size())
        return std::numeric_limits<double>::infinity();
    double worst = 0.0;
    const float* const left = &a.data()->r;
    const float* const right = &b.data()->r;
    for (std::size_t i = 0; i < a.pixelCount() * 3; ++i) {
        const double difference = std::abs(static_cast<double>(left[i]) - static_cast<double>(right[i]));
        if (!(difference <= worst))
            worst = std::isnan(difference) ? std::numeric_limits<double>::infinity() : difference;
    }
    return worst;
}

Bytes readBytes(const std::filesystem::path& path)
{
    std::ifstream stream(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
}

void writeBytes(const std::filesystem::path& path, const Bytes& bytes)
{
    std::ofstream stream(path, std::ios::binary | std::ios::trunc);
    stream.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

Bytes exifBlock(const ExifTags& tags)
{
    Exiv2::ExifData exif;
    if (tags.orientation != 0)
        exif["Exif.Image.Orientation"] = static_cast<std::uint16_t>(tags.orientation);
    if (!tags.make.empty())
        exif["Exif.Image.Make"] = tags.make;
    const auto unsignedRatio = [](std::uint32_t above, std::uint32_t below) { return Exiv2::URational(above, below); };
    if (tags.timeAbove != 0)
        exif["Exif.Photo.ExposureTime"] = unsignedRatio(tags.timeAbove, tags.timeBelow);
    if (tags.apertureAbove != 0)
        exif["Exif.Photo.FNumber"] = unsignedRatio(tags.apertureAbove, tags.apertureBelow);
    if (tags.iso != 0)
        exif["Exif.Photo.ISOSpeedRatings"] = static_cast<std::uint16_t>(tags.iso);
    if (tags.hasBias)
        exif["Exif.Photo.ExposureBiasValue"] = Exiv2::Rational(tags.biasAbove, tags.biasBelow);
    Exiv2::Blob blob;
    Exiv2::ExifParser::encode(blob, Exiv2::littleEndian, exif);
    return blob;
}

void makeJpeg(const std::filesystem::path& path, int width, int height, const Bytes& samples, const JpegKind& kind)
{
    std::FILE* const file = std::fopen(path.c_str(), "wb");
    jpeg_compress_struct info = {};
    jpeg_error_mgr errors;
    info.err = jpeg_std_error(&errors);
    jpeg_create_compress(&info);
    jpeg_stdio_dest(&info, file);
    info.image_width = static_cast<JDIMENSION>(width);
    info.image_height = static_cast<JDIMENSION>(height);
    info.input_components = kind.channels;
    info.in_color_space = kind.channels == 1 ? JCS_GRAYSCALE : kind.channels == 3 ? JCS_RGB : JCS_CMYK;
    jpeg_set_defaults(&info);
    if (kind.channels == 4 && kind.adobe)
        jpeg_set_colorspace(&info, JCS_YCCK);
    info.write_Adobe_marker = kind.adobe ? TRUE : FALSE;
    jpeg_set_quality(&info, kind.quality, TRUE);
    info.comp_info[0].h_samp_factor = info.comp_info[0].v_samp_factor = 1;
    if (kind.progressive)
        jpeg_simple_progression(&info);
    jpeg_start_compress(&info, TRUE);
    if (!kind.exif.empty()) {
        Bytes marker = {'E', 'x', 'i', 'f', 0, 0};
        marker.insert(marker.end(), kind.exif.begin(), kind.exif.end());
        jpeg_write_marker(&info, JPEG_APP0 + 1, marker.data(), static_cast<unsigned>(marker.size()));
    }
    if (!kind.icc.empty())
        jpeg_write_icc_profile(&info, kind.icc.data(), static_cast<unsigned>(kind.icc.size()));
    const std::size_t stride = static_cast<std::size_t>(width) * static_cast<std::size_t>(kind.channels);
    while (info.next_scanline < info.image_height) {
        JSAMPROW row = const_cast<unsigned char*>(samples.data() + stride * info.next_scanline);
        jpeg_write_scanlines(&info, &row, 1);
    }
    jpeg_finish_compress(&info);
    jpeg_destroy_compress(&info);
    std::fclose(file);
}

void makePng(const std::filesystem::path& path, int width, int height, const Bytes& samples, const PngKind& kind)
{
    std::FILE* const file = std::fopen(path.c_str(), "wb");
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png_create_info_struct(png);
    png_init_io(png, file);
    png_set_IHDR(png, info, static_cast<png_uint_32>(width), static_cast<png_uint_32>(height), kind.bits,
                 kind.colorType, kind.interlaced ? PNG_INTERLACE_ADAM7 : PNG_INTERLACE_NONE,
                 PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    if (!kind.palette.empty())
        png_set_PLTE(png, info, reinterpret_cast<png_const_colorp>(kind.palette.data()),
                     static_cast<int>(kind.palette.size() / 3));
    if (!kind.paletteAlpha.empty())
        png_set_tRNS(png, info, kind.paletteAlpha.data(), static_cast<int>(kind.paletteAlpha.size()), nullptr);
    if (!kind.icc.empty())
        png_set_iCCP(png, info, "icc", PNG_COMPRESSION_TYPE_BASE, kind.icc.data(),
                     static_cast<png_uint_32>(kind.icc.size()));
    std::vector<png_bytep> rows;
    const std::size_t stride = samples.size() / static_cast<std::size_t>(height);
    for (int y = 0; y < height; ++y)
        rows.push_back(const_cast<png_bytep>(samples.data() + stride * static_cast<std::size_t>(y)));
    png_set_rows(png, info, rows.data());
    png_write_png(png, info, PNG_TRANSFORM_IDENTITY, nullptr);
    png_destroy_write_struct(&png, &info);
    std::fclose(file);
}

namespace {

void writeTiles(TIFF* tiff, int width, int height, const Bytes& samples, std::size_t pixelBytes, int side)
{
    Bytes tile(static_cast<std::size_t>(side * side) * pixelBytes);
    for (int top = 0; top < height; top += side)
        for (int left = 0; left < width; left += side) {
            std::fill(tile.begin(), tile.end(), static_cast<unsigned char>(0));
            for (int y = top; y < std::min(height, top + side); ++y) {
                const auto count = static_cast<std::size_t>(std::min(width, left + side) - left) * pixelBytes;
                const auto from = static_cast<std::size_t>(y * width + left) * pixelBytes;
                std::memcpy(tile.data() + static_cast<std::size_t>((y - top) * side) * pixelBytes,
                            samples.data() + from, count);
            }
            TIFFWriteTile(tiff, tile.data(), static_cast<std::uint32_t>(left), static_cast<std::uint32_t>(top), 0, 0);
        }
}

void writeRows(TIFF* tiff, int width, int height, const Bytes& samples, const TiffKind& kind)
{
    const std::size_t stride = samples.size() / static_cast<std::size_t>(height);
    const auto sampleBytes = static_cast<std::size_t>(std::max(1, kind.bits / 8));
    for (int plane = 0; plane < (kind.planar ? kind.channels : 1); ++plane)
        for (int y = 0; y < height; ++y) {
            Bytes row(samples.begin() + static_cast<std::ptrdiff_t>(stride) * y,
                      samples.begin() + static_cast<std::ptrdiff_t>(stride) * (y + 1));
            if (kind.planar) {
                Bytes one(static_cast<std::size_t>(width) * sampleBytes);
                for (int x = 0; x < width; ++x)
                    std::memcpy(one.data() + static_cast<std::size_t>(x) * sampleBytes,
                                row.data() + static_cast<std::size_t>(x * kind.channels + plane) * sampleBytes,
                                sampleBytes);
                row = one;
            }
            TIFFWriteScanline(tiff, row.data(), static_cast<std::uint32_t>(y), static_cast<std::uint16_t>(plane));
        }
}

} // namespace

void makeTiff(const std::filesystem::path& path, int width, int height, const Bytes& samples, const TiffKind& kind)
{
    TIFF* const tiff = TIFFOpen(path.c_str(), "w");
    TIFFSetField(tiff, TIFFTAG_IMAGEWIDTH, width);
    TIFFSetField(tiff, TIFFTAG_IMAGELENGTH, height);
    TIFFSetField(tiff, TIFFTAG_BITSPERSAMPLE, kind.bits);
    TIFFSetField(tiff, TIFFTAG_SAMPLESPERPIXEL, kind.channels);
    TIFFSetField(tiff, TIFFTAG_SAMPLEFORMAT, kind.floats ? SAMPLEFORMAT_IEEEFP : SAMPLEFORMAT_UINT);
    TIFFSetField(tiff, TIFFTAG_PHOTOMETRIC, kind.photometric);
    TIFFSetField(tiff, TIFFTAG_PLANARCONFIG, kind.planar ? PLANARCONFIG_SEPARATE : PLANARCONFIG_CONTIG);
    TIFFSetField(tiff, TIFFTAG_ORIENTATION, kind.orientation);
    TIFFSetField(tiff, TIFFTAG_COMPRESSION, COMPRESSION_LZW);
    if (kind.alpha >= 0) {
        std::uint16_t extra[] = {static_cast<std::uint16_t>(kind.alpha)};
        TIFFSetField(tiff, TIFFTAG_EXTRASAMPLES, 1, extra);
    }
    if (!kind.palette.empty())
        TIFFSetField(tiff, TIFFTAG_COLORMAP, kind.palette.data(), kind.palette.data() + 256, kind.palette.data() + 512);
    if (!kind.icc.empty())
        TIFFSetField(tiff, TIFFTAG_ICCPROFILE, static_cast<std::uint32_t>(kind.icc.size()), kind.icc.data());
    if (kind.tiled) {
        TIFFSetField(tiff, TIFFTAG_TILEWIDTH, kind.tileSide);
        TIFFSetField(tiff, TIFFTAG_TILELENGTH, kind.tileSide);
        writeTiles(tiff, width, height, samples, static_cast<std::size_t>(kind.channels * kind.bits / 8),
                   kind.tileSide);
    } else {
        TIFFSetField(tiff, TIFFTAG_ROWSPERSTRIP, 7);
        writeRows(tiff, width, height, samples, kind);
    }
    TIFFClose(tiff);
}

void makeWebP(const std::filesystem::path& path, int width, int height, const Bytes& rgba)
{
    std::uint8_t* made = nullptr;
    const std::size_t bytes = WebPEncodeLosslessRGBA(rgba.data(), width, height, width * 4, &made);
    writeBytes(path, Bytes(made, made + bytes));
    WebPFree(made);
}

std::shared_ptr<Image> openFile(const std::filesystem::path& path, ImageReaderOpenFlag flags,
                                std::shared_ptr<ColorProfile> profile)
{
    ImageReadOptions options;
    options.profile = std::move(profile);
    return ImageReader::instance().open({path, ""}, options, flags, nullptr, "", -1);
}

std::shared_ptr<Picture> pixelsOf(const std::shared_ptr<Image>& image)
{
    return image ? image->imageData({}, {}, true) : nullptr;
}

std::shared_ptr<Picture> openAsSRGB(const std::filesystem::path& path, ImageReaderOpenFlag flags)
{
    return pixelsOf(openFile(path, flags, ColorProfileType::sRGB()));
}

std::filesystem::path testData()
{
    const char* const folder = std::getenv("ORVO_TEST_DATA");
    return folder != nullptr ? folder : "";
}

} // namespace orvo::test
