#include "seeds.hpp"
#include "test_files.hpp"

#include <orvo_io/image_writer.hpp>
#include <scenes/dng.hpp>
#include <scenes/exif.hpp>

#include <libheif/heif.h>

#include <cmath>
#include <cstdio>
#include <memory>
#include <stdexcept>

namespace orvo::fuzz {
namespace {

constexpr int kWidth = 16;
constexpr int kHeight = 12;

std::shared_ptr<_ImageData<PixelRGB<float>>> smallPicture() { return test::gradient(kWidth, kHeight, 255); }

// The picture in bytes: red, green, blue, and opaque alpha if there are four channels.
test::Bytes bytesOf(const _ImageData<PixelRGB<float>>& picture, int channels)
{
    test::Bytes bytes;
    for (std::size_t i = 0; i < picture.pixelCount(); ++i) {
        const PixelRGB<float>& p = picture.data()[i];
        const float samples[] = {p.r, p.g, p.b, 1.0f};
        for (int channel = 0; channel < channels; ++channel)
            bytes.push_back(static_cast<unsigned char>(std::lround(samples[channel] * 255.0f)));
    }
    return bytes;
}

void writeByOurWriter(const std::filesystem::path& folder)
{
    const auto picture = smallPicture();
    struct Kind
    {
        const char* name;
        int bits;
        bool exif;
    };
    for (const Kind& kind : {Kind{"plain.jpg", 8, false}, Kind{"exif.jpg", 8, true}, Kind{"8.png", 8, false},
                             Kind{"16.png", 16, true}, Kind{"8.tif", 8, false}, Kind{"16.tif", 16, true},
                             Kind{"half.exr", 16, false}, Kind{"float.exr", 32, true}}) {
        ImageWriteSettings settings = writeSettingsForPath(kind.name);
        settings.bits = kind.bits;
        if (kind.exif)
            settings.metadata = scenes::metadataWith({}, picture->size());
        writeImage(folder / kind.name, *picture, settings);
    }
}

void writeByTheCodecs(const std::filesystem::path& folder)
{
    const auto picture = smallPicture();
    const test::Bytes gray = bytesOf(*picture, 1);
    const test::Bytes colours = bytesOf(*picture, 3);
    const test::Bytes four = bytesOf(*picture, 4);
    test::makeJpeg(folder / "gray.jpg", kWidth, kHeight, gray, {.channels = 1});
    test::makeJpeg(folder / "ink.jpg", kWidth, kHeight, four, {.channels = 4, .adobe = true});
    test::makeJpeg(folder / "progressive.jpg", kWidth, kHeight, colours, {.progressive = true, .quality = 80});
    test::makePng(folder / "alpha.png", kWidth, kHeight, four, {.colorType = 6});
    test::makePng(folder / "interlaced.png", kWidth, kHeight, colours, {.interlaced = true});
    test::makeTiff(folder / "gray.tif", kWidth, kHeight, gray, {.channels = 1, .photometric = 1});
    test::makeTiff(folder / "tiled.tif", kWidth, kHeight, colours, {.tiled = true});
    test::makeTiff(folder / "planar.tif", kWidth, kHeight, colours, {.planar = true});
    test::makeTiff(folder / "alpha.tif", kWidth, kHeight, four, {.channels = 4, .alpha = 2, .orientation = 6});
    test::makeWebP(folder / "lossless.webp", kWidth, kHeight, four);
}

// HEIC or AVIF if libheif has an encoder for it; not every build has.
void writeHeif(const std::filesystem::path& file, heif_compression_format format)
{
    if (heif_have_encoder_for_format(format) == 0)
        return;
    const std::unique_ptr<heif_context, decltype(&heif_context_free)> context(heif_context_alloc(), heif_context_free);
    const auto check = [&](const heif_error& error) {
        if (error.code != heif_error_Ok)
            throw std::runtime_error(file.string() + ": " + error.message);
    };
    constexpr int kSide = 64; // encoders refuse pictures smaller than a block
    heif_image* made = nullptr;
    check(heif_image_create(kSide, kSide, heif_colorspace_RGB, heif_chroma_interleaved_RGB, &made));
    const std::unique_ptr<heif_image, decltype(&heif_image_release)> image(made, heif_image_release);
    check(heif_image_add_plane(made, heif_channel_interleaved, kSide, kSide, 8));
    int stride = 0;
    std::uint8_t* const plane = heif_image_get_plane(made, heif_channel_interleaved, &stride);
    for (int y = 0; y < kSide; ++y)
        for (int x = 0; x < 3 * kSide; ++x)
            plane[y * stride + x] = static_cast<std::uint8_t>(x + 2 * y);
    heif_encoder* found = nullptr;
    check(heif_context_get_encoder_for_format(context.get(), format, &found));
    const std::unique_ptr<heif_encoder, decltype(&heif_encoder_release)> encoder(found, heif_encoder_release);
    check(heif_context_encode_image(context.get(), made, found, nullptr, nullptr));
    check(heif_context_write_to_file(context.get(), file.c_str()));
}

} // namespace

void writePictureSeeds(const std::filesystem::path& folder)
{
    writeByOurWriter(folder);
    writeByTheCodecs(folder);
    scenes::SceneSettings scene;
    scene.size = {kWidth, kWidth}; // the smallest possible
    scenes::writeDng(folder / "raw.dng", scenes::RadianceScene(scene), {}, {}, scenes::ExifValues());
    writeHeif(folder / "hevc.heic", heif_compression_HEVC);
    writeHeif(folder / "av1.avif", heif_compression_AV1);
}

} // namespace orvo::fuzz
