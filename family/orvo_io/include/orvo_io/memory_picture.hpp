/// A picture in the caller's memory, as an input like a file.
#pragma once

#include <orvo_common/export.hpp>
#include <orvo_core/color_profile.hpp>
#include <orvo_core/image_metadata.hpp>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>

namespace orvo {

/// Upright rows from top to bottom, samples interleaved. A plain record: it does not own the samples.
///
/// Reading it gives the same pixels as a file with these samples and this profile: alpha is composited over black in
/// the encoded values, gray is repeated, NaN becomes 0, infinities the largest half float.
///
/// Example, of a picture whose rows have 8-bit red, green, blue and alpha:
///
///     orvo::MemoryPicture picture;
///     picture.name = "layer 3";
///     picture.data = layer.bits();
///     picture.width = layer.width();
///     picture.height = layer.height();
///     picture.channels = 4;
///     picture.rowBytes = layer.bytesPerLine();
struct MemoryPicture
{
    enum class Samples : std::int32_t
    {
        UInt8,  ///< full scale 255
        UInt16, ///< full scale 65535, native byte order
        Float32 ///< full scale 1
    };

    /// Stands for the path of a file in failures and results, and in the order of a panorama's pictures. It is never
    /// opened, and may be empty.
    std::filesystem::path name;
    /// The first sample of the top row. All rows must stay unchanged until the call that reads them has returned.
    const void* data = nullptr;
    std::int32_t width = 0;
    std::int32_t height = 0;
    std::int32_t channels = 3; ///< 1 gray, 2 gray and alpha, 3 red, green and blue, 4 those and alpha
    Samples samples = Samples::UInt8;
    std::size_t rowBytes = 0;              ///< from the start of a row to that of the next; 0: rows without gaps
    bool premultiplied = false;            ///< the colours are already multiplied by alpha
    std::shared_ptr<ColorProfile> profile; ///< RGB, or gray for one or two channels; empty: sRGB
    /// Exposure data, camera, lens and embedded blocks, as ImageReader::readMetadata() returns them; may be empty.
    /// Without exposure data the brightness is measured, as it is for files. Size, profile and raw mark are not used.
    std::shared_ptr<const ImageMetadata> metadata;
};

} // namespace orvo
