/// Loads frames for the benchmark programs: all with the same reader, in sRGB.
#pragma once

#include <orvo_core/image.hpp>
#include <orvo_io/image_reader.hpp>

#include <memory>
#include <stdexcept>
#include <string>

namespace orvo::bench {

using Picture = _ImageData<PixelRGB<float>>;

/// Throws std::runtime_error that names the file.
inline std::shared_ptr<Picture> loadInSRGB(const char* path)
{
    ImageReadOptions options;
    options.profile = ColorProfileType::sRGB();
    const auto image = ImageReader::instance().open({path, {}}, options, ImageReaderOpenFlag::Bracket, nullptr, {}, -1);
    if (!image)
        throw std::runtime_error(std::string("cannot read ") + path);
    return image->imageData({}, {}, true);
}

} // namespace orvo::bench
