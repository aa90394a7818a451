/// Picture files for tests.
#pragma once

#include "support/pictures.hpp"

#include <orvo_io/image_writer.hpp>

#include <filesystem>

namespace orvo::test {

/// Writes a picture in the working space without EXIF; the file extension selects the format.
inline std::filesystem::path writtenTo(const std::filesystem::path& path, const Picture& picture)
{
    ImageWriteSettings settings = writeSettingsForPath(path);
    settings.profile = ColorProfileType::melissaRGB();
    writeImage(path, picture, settings);
    return path;
}

/// The texture under a brightness factor on the encoded values.
inline std::shared_ptr<Picture> texturedAt(float gain, int width = 160, int height = 120, double shiftX = 0,
                                           double shiftY = 0)
{
    return drawn(width, height, [=](int x, int y) {
        const auto p = texture(x + shiftX, y + shiftY);
        return PixelRGB<float>{p.r * gain, p.g * gain, p.b * gain};
    });
}

} // namespace orvo::test
