#include "exif_directory.hpp"
#include "paint.hpp"
#include "sensor.hpp"

#include <orvo_common/wide_path.hpp>
#include <orvo_core/parallel.hpp>
#include <scenes/dng.hpp>

#include <array>
#include <cmath>
#include <fstream>
#include <stdexcept>
#include <string>

namespace orvo::scenes {

namespace {

constexpr std::uint16_t kBlack = 512;
constexpr std::uint16_t kWhite = 16383;
// Share of the light that passes each filter. As on real sensors green passes most, so it clips first.
constexpr std::array<double, 3> kPassed = {0.5, 1.0, 0.65};
// XYZ (D65) to linear sRGB, IEC 61966-2-1.
constexpr std::array<double, 9> kSrgbFromXyz = {3.2404542, -1.5371385, -0.4985314, -0.9692660, 1.8760108,
                                                0.0415560, 0.0556434,  -0.2040259, 1.0572252};
constexpr int kPreviewSide = 256;

struct RawPlane
{
    _Size<int> size;
    std::vector<std::uint16_t> samples;
};

RawPlane exposeSensor(const RadianceScene& scene, const CameraSettings& camera, const Shot& shot)
{
    RawPlane raw{{scene.size().width / 2 * 2, scene.size().height / 2 * 2}, {}};
    raw.samples.resize(static_cast<std::size_t>(raw.size.width) * static_cast<std::size_t>(raw.size.height));
    const Sight sight(scene, shot);
    const float gain = static_cast<float>(std::exp2(exposureValue(shot.exposure)));
    const NoiseSource noise(camera.noise, shot.exposure, shot.noiseSeed);
    const std::array<float, 3> channelGain = {gain * static_cast<float>(kPassed[0]),
                                              gain * static_cast<float>(kPassed[1]),
                                              gain * static_cast<float>(kPassed[2])};
    const auto exposeRow = [&](int y) {
        std::vector<PixelRGB<float>> light(static_cast<std::size_t>(raw.size.width));
        sight.row(y, raw.size.width, light.data());
        const std::size_t first = static_cast<std::size_t>(y) * light.size();
        for (std::size_t x = 0; x < light.size(); ++x) {
            const std::size_t channel = static_cast<std::size_t>(y & 1) + (x & 1); // RGGB
            const std::array<float, 3> seen = {light[x].r, light[x].g, light[x].b};
            float value = seen[channel] * channelGain[channel];
            if (!noise.silent())
                value = noise.noisy(value, first + x);
            const float level = kBlack + value * (kWhite - kBlack);
            raw.samples[first + x] =
                static_cast<std::uint16_t>(std::clamp(level + 0.5f, 0.0f, static_cast<float>(kWhite)));
        }
    };
    forEachRow(raw.size.height, exposeRow);
    return raw;
}

struct Preview
{
    _Size<int> size;
    std::vector<unsigned char> samples;
};

// White-balanced mean of the green, red and blue samples of a block of pixel quads, sRGB encoded.
Preview shrunk(const RawPlane& raw)
{
    const int quads = std::max(1, (std::max(raw.size.width, raw.size.height) / 2 + kPreviewSide - 1) / kPreviewSide);
    Preview preview{{raw.size.width / (2 * quads), raw.size.height / (2 * quads)}, {}};
    for (int y = 0; y < preview.size.height; ++y)
        for (int x = 0; x < preview.size.width; ++x) {
            std::array<double, 3> sum{};
            for (int j = 0; j < 2 * quads; ++j)
                for (int i = 0; i < 2 * quads; ++i) {
                    const auto at =
                        static_cast<std::size_t>(2 * quads * y + j) * static_cast<std::size_t>(raw.size.width) +
                        static_cast<std::size_t>(2 * quads * x + i);
                    sum[static_cast<std::size_t>((i & 1) + (j & 1))] += raw.samples[at] - kBlack;
                }
            for (std::size_t channel = 0; channel < 3; ++channel) {
                const double count = quads * quads * (channel == 1 ? 2.0 : 1.0);
                const double linear = sum[channel] / (count * (kWhite - kBlack) * kPassed[channel]);
                preview.samples.push_back(static_cast<unsigned char>(
                    255.0f * encoded(ResponseCurve::Srgb, static_cast<float>(linear)) + 0.5f));
            }
        }
    return preview;
}

// Tag numbers of TIFF 6.0 and DNG 1.4 (Adobe 2012).
TiffDirectory rawDirectory(_Size<int> size)
{
    const auto width = static_cast<std::uint32_t>(size.width);
    const auto height = static_cast<std::uint32_t>(size.height);
    TiffDirectory d;
    d.number32(254, 0); // NewSubfileType: the main picture
    d.number32(256, width);
    d.number32(257, height);
    d.number16(258, 16);
    d.number16(259, 1);     // Compression: none
    d.number16(262, 32803); // PhotometricInterpretation: colour filter array
    d.number32(273, 0);     // StripOffsets, set later
    d.number16(277, 1);
    d.number32(278, height);
    d.number32(279, width * height * 2);
    d.number16(284, 1);
    d.shorts(33421, std::array<std::uint16_t, 2>{2, 2});      // CFARepeatPatternDim
    d.bytes(33422, std::array<unsigned char, 4>{0, 1, 1, 2}); // CFAPattern: RGGB
    d.bytes(50710, std::array<unsigned char, 3>{0, 1, 2});    // CFAPlaneColor
    d.number16(50711, 1);                                     // CFALayout
    d.shorts(50713, std::array<std::uint16_t, 2>{1, 1});      // BlackLevelRepeatDim
    d.number16(50714, kBlack);
    d.number32(50717, kWhite);
    d.rationals(50718, std::array<double, 2>{1.0, 1.0});               // DefaultScale
    d.longs(50719, std::array<std::uint32_t, 2>{0, 0});                // DefaultCropOrigin
    d.longs(50720, std::array<std::uint32_t, 2>{width, height});       // DefaultCropSize
    d.longs(50829, std::array<std::uint32_t, 4>{0, 0, height, width}); // ActiveArea
    return d;
}

TiffDirectory previewDirectory(const Preview& preview)
{
    TiffDirectory d;
    d.number32(254, 1); // NewSubfileType: a smaller picture
    d.number32(256, static_cast<std::uint32_t>(preview.size.width));
    d.number32(257, static_cast<std::uint32_t>(preview.size.height));
    d.shorts(258, std::array<std::uint16_t, 3>{8, 8, 8});
    d.number16(259, 1);
    d.number16(262, 2); // RGB
    d.number32(273, 0);
    d.number16(277, 3);
    d.number32(278, static_cast<std::uint32_t>(preview.size.height));
    d.number32(279, static_cast<std::uint32_t>(preview.samples.size()));
    d.number16(284, 1);
    d.number32(330, 0); // SubIFDs, set later
    return d;
}

void describeCamera(TiffDirectory& d, const ExifValues& names)
{
    std::array<double, 9> cameraFromXyz = kSrgbFromXyz;
    for (std::size_t i = 0; i < cameraFromXyz.size(); ++i)
        cameraFromXyz[i] *= kPassed[i / 3];
    d.text(kTagMake, names.make);
    d.text(kTagModel, names.model);
    d.number16(kTagOrientation, 1);
    d.bytes(50706, std::array<unsigned char, 4>{1, 4, 0, 0}); // DNGVersion
    d.bytes(50707, std::array<unsigned char, 4>{1, 1, 0, 0}); // DNGBackwardVersion
    d.text(50708, names.make + " " + names.model);            // UniqueCameraModel
    d.signedRationals(50721, cameraFromXyz);                  // ColorMatrix1
    d.rationals(50728, kPassed);                              // AsShotNeutral
    d.signedRationals(50730, std::array<double, 1>{0.0});     // BaselineExposure
    d.number16(50778, 21);                                    // CalibrationIlluminant1: D65
}

std::vector<unsigned char> layOut(TiffDirectory first, TiffDirectory sub, const Preview& preview,
                                  const std::optional<ExifValues>& exif)
{
    TiffDirectory exifTags;
    if (exif) {
        exifTags = exifDirectory(*exif);
        first.text(kTagDateTime, exif->dateTimeOriginal);
        first.number32(kTagExifDirectory, 0);
    }
    std::size_t at = kTiffHeaderBytes + first.size();
    if (exif) {
        first.number32(kTagExifDirectory, static_cast<std::uint32_t>(at));
        at += exifTags.size();
    }
    first.number32(330, static_cast<std::uint32_t>(at));
    at += sub.size();
    first.number32(273, static_cast<std::uint32_t>(at));
    at += (preview.samples.size() + 1) / 2 * 2;
    sub.number32(273, static_cast<std::uint32_t>(at));

    std::vector<unsigned char> file;
    appendTiffHeader(file);
    first.append(file);
    if (exif)
        exifTags.append(file);
    sub.append(file);
    file.insert(file.end(), preview.samples.begin(), preview.samples.end());
    file.resize(at, 0);
    return file;
}

} // namespace

void writeDng(const std::filesystem::path& path, const RadianceScene& scene, const CameraSettings& camera,
              const Shot& shot, const std::optional<ExifValues>& exif)
{
    const RawPlane raw = exposeSensor(scene, camera, shot);
    const Preview preview = shrunk(raw);
    TiffDirectory first = previewDirectory(preview);
    describeCamera(first, exif.value_or(ExifValues{}));
    const std::vector<unsigned char> head = layOut(std::move(first), rawDirectory(raw.size), preview, exif);

    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char*>(head.data()), static_cast<std::streamsize>(head.size()));
    // The supported machines are little-endian, like the file.
    out.write(reinterpret_cast<const char*>(raw.samples.data()),
              static_cast<std::streamsize>(raw.samples.size() * sizeof(std::uint16_t)));
    out.close();
    if (!out) {
        std::error_code ignored;
        std::filesystem::remove(path, ignored);
        throw std::runtime_error("cannot write " + pathText(path));
    }
}

} // namespace orvo::scenes
