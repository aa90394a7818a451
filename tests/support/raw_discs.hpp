/// A raw file with colour fringes, and a measure of them.
#pragma once

#include "support/pictures.hpp"

#include <scenes/dng.hpp>
#include <scenes/exif.hpp>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <vector>

namespace orvo::test {

inline constexpr _Size<int> kRawSize{600, 420};

/// Light discs on gray, at any position.
inline double discs(double x, double y)
{
    const double dx = x - 60.0 * std::floor(x / 60.0) - 30.0;
    const double dy = y - 60.0 * std::floor(y / 60.0) - 30.0;
    return 0.08 + 0.35 / (1.0 + std::exp(1.5 * (std::hypot(dx, dy) - 18.0)));
}

/// A raw file of a camera with a fixed lens, with discs on its sensor whose red is `redScale` times as far from the
/// middle as the rest, exposed `ev` more than they need.
inline std::filesystem::path rawOfDiscs(const std::filesystem::path& path, double redScale, double ev = 0.0)
{
    const scenes::RadianceScene anyScene({kRawSize, 1, 0.06});
    scenes::ExifValues exif;
    exif.make = "Canon";
    exif.model = "Canon PowerShot S95";
    exif.focalLength = 6.0;
    exif.exposure.aperture = 2.0;
    exif.exposure = scenes::exposedBy(exif.exposure, ev);
    scenes::writeDng(path, anyScene, {}, {}, exif);
    // The sensor's values end the file; RGGB, whose red and blue pass less light.
    constexpr double kBlack = 512.0;
    constexpr double kWhite = 16383.0;
    constexpr double kPassed[] = {0.5, 1.0, 0.65};
    std::vector<std::uint16_t> samples;
    const double middleX = (kRawSize.width - 1) / 2.0;
    const double middleY = (kRawSize.height - 1) / 2.0;
    for (int y = 0; y < kRawSize.height; ++y)
        for (int x = 0; x < kRawSize.width; ++x) {
            const int channel = (x & 1) + (y & 1);
            const double scale = channel == 0 ? redScale : 1.0;
            const double light = discs(middleX + (x - middleX) / scale, middleY + (y - middleY) / scale);
            const double signal = std::min(light * kPassed[channel] * std::exp2(ev), 1.0);
            samples.push_back(static_cast<std::uint16_t>(std::lround(kBlack + signal * (kWhite - kBlack))));
        }
    const auto bytes = static_cast<std::streamoff>(samples.size() * sizeof(std::uint16_t));
    std::fstream stream(path, std::ios::binary | std::ios::in | std::ios::out);
    stream.seekp(-bytes, std::ios::end);
    stream.write(reinterpret_cast<const char*>(samples.data()), bytes);
    return path;
}

/// The difference of red and green in the outer part of the picture, where fringes are visible.
inline double fringes(const Picture& picture)
{
    double sum = 0.0;
    for (int y = 0; y < picture.height(); ++y)
        for (int x = 0; x < picture.width(); ++x)
            if (std::abs(x - picture.width() / 2) > picture.width() / 4)
                sum += std::abs(picture.row(y)[x].r - picture.row(y)[x].g);
    return sum / static_cast<double>(picture.pixelCount());
}

} // namespace orvo::test
