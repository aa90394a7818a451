// Converts EXIF, IPTC and XMP blocks to the metadata record of a picture, and back to the blocks of a new file. Exiv2
// stays behind this header.
#pragma once

#include <orvo_core/image_metadata.hpp>
#include <orvo_io/image_writer.hpp>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <span>
#include <string>
#include <vector>

namespace orvo::io {

// The content of a file's blocks besides ImageMetadata.
struct BlockFacts
{
    ImageMetadata record;
    int orientation = 1;                // EXIF, 1..8
    bool adobe = false;                 // EXIF declares Adobe RGB
    bool hasBias = false;               // record.exposureBias was in the file
    int sampleBits = 8;                 // of the stored picture; palettes and samples of fewer bits count as 8
    std::vector<unsigned char> preview; // a JPEG, may be empty
    std::vector<unsigned char> icc;     // from readFactsOfFile() only
};

// Reads the blocks; a damaged one counts as missing. Stores them in record.embedded if `keep`. Throws only
// std::bad_alloc. Can be called from any thread.
[[nodiscard]] BlockFacts readFacts(EmbeddedMetadata blocks, bool keep, bool wantPreview);

// The same for files whose directories are the blocks: TIFF and raw files. The preview is the largest JPEG.
[[nodiscard]] BlockFacts readFactsOfFile(const std::filesystem::path& path, bool keep);

// IPTC records from the Photoshop resources of a JPEG; empty if there are none.
[[nodiscard]] std::vector<unsigned char> iptcFromPhotoshop(std::span<const unsigned char> resources);
// The inverse.
[[nodiscard]] std::vector<unsigned char> photoshopFromIptc(std::span<const unsigned char> iptc);

// The blocks for a new file of `size`, whose settings have a profile: those of its metadata, upright, without the
// preview and without anything that describes the pixels of the original file, with the writer's software. Skips
// unreadable blocks.
[[nodiscard]] EmbeddedMetadata blocksForWriting(const ImageWriteSettings& settings, _Size<int> size,
                                                std::size_t exifLimit);

// One entry of a TIFF directory, native byte order.
struct DirectoryEntry
{
    std::uint16_t tag;
    std::uint16_t type;  // TIFF 6.0, 1..12
    std::uint64_t count; // values
    std::vector<unsigned char> value;
};

// The EXIF directories that a TIFF file stores next to its main one: exposure and location, and the texts for the main
// directory. Without the MakerNote, whose offsets do not survive the move.
struct ExifDirectories
{
    std::vector<DirectoryEntry> main; // texts: maker, model, artist, ...
    std::vector<DirectoryEntry> photo;
    std::vector<DirectoryEntry> gps;
};
[[nodiscard]] ExifDirectories directoriesOf(const std::vector<unsigned char>& exif);

} // namespace orvo::io
