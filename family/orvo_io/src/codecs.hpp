// The job a codec gets and the answer it returns. One source file per format.
#pragma once

#include "metadata.hpp"
#include "picture_sink.hpp"
#include "source_file.hpp"

#include <orvo_io/image_reader.hpp>

#include <memory>
#include <span>
#include <string>
#include <vector>

namespace orvo::io {

[[nodiscard]] constexpr bool has(ImageReaderOpenFlag flags, ImageReaderOpenFlag bit)
{
    return (static_cast<std::int32_t>(flags) & static_cast<std::int32_t>(bit)) != 0;
}

enum class ReadDepth
{
    Facts,   // metadata only
    Reduced, // a smaller picture of at least ReadJob::side, if the format makes that cheaper
    Full
};

struct ReadJob
{
    ReadDepth depth = ReadDepth::Full;
    int side = 0; // with Reduced
    ImageReaderOpenFlag flags = ImageReaderOpenFlag::Bracket;
    std::shared_ptr<ColorProfile> target; // with WorkingSpace
    bool keepsSRGB = false;               // as in ImageReadOptions
    std::int64_t maxPixels = 0;
    std::shared_ptr<const ImageMetadata> known;
    std::string part;
    int index = -1;
    const RunControl* run = &RunControl::none();
    bool wantPreview = false;
    int orientation = 0;                  // not 0: overrides that of the file; for embedded previews
    std::shared_ptr<ColorProfile> assume; // the profile if the file has none; empty: sRGB

    [[nodiscard]] bool wants(ImageReaderOpenFlag bit) const { return has(flags, bit); }
};

struct ReadAnswer
{
    std::shared_ptr<RGBPicture> picture; // empty with Facts
    BlockFacts facts;                    // the record is complete except for the measured exposure offset
    std::shared_ptr<AdditionalRawMetadata> raw;
    std::string cutOff; // not empty: what is missing; never set for a job with Complete
};

// Each throws FailureError, mostly ReadFailure, or any std::exception of its library.
[[nodiscard]] ReadAnswer readJpeg(const SourceFile& file, const ReadJob& job);
[[nodiscard]] ReadAnswer readPng(const SourceFile& file, const ReadJob& job);
[[nodiscard]] ReadAnswer readTiff(const SourceFile& file, const ReadJob& job);
[[nodiscard]] ReadAnswer readWebP(const SourceFile& file, const ReadJob& job);
[[nodiscard]] ReadAnswer readExr(const SourceFile& file, const ReadJob& job);
[[nodiscard]] ReadAnswer readHeif(const SourceFile& file, const ReadJob& job);
[[nodiscard]] ReadAnswer readRaw(const SourceFile& file, const ReadJob& job);
[[nodiscard]] ReadAnswer readMemory(const MemoryPicture& picture, const ReadJob& job);
// Whether LibRaw recognises the file as raw.
[[nodiscard]] bool librawKnows(const std::filesystem::path& path);

// Throws ReadFailure if the picture is empty or larger than the job allows.
void checkSize(const ReadJob& job, std::int64_t width, std::int64_t height);

// Throws ReadFailure if the picture is empty, larger than the job allows, or larger than a file of at least
// `leastBytes` could contain (0: unknown).
void checkExtent(const SourceFile& file, const ReadJob& job, std::int64_t width, std::int64_t height,
                 std::int64_t leastBytes);

// Throws ReadFailure unless the job requests the only picture of a file with one picture.
void refuseParts(const ReadJob& job);

// The profile of the file: its ICC block if that has as many colours, else the EXIF's, else sRGB (empty for CMYK).
// Always sets facts.record.fileProfile, where CMYK without a profile counts as sRGB.
[[nodiscard]] std::shared_ptr<ColorProfile> settleProfile(std::span<const unsigned char> icc, int colors,
                                                          const ReadJob& job, BlockFacts& facts);

// Fills the record's size, and replaces the record by the known one.
void settleRecord(_Size<int> stored, const ReadJob& job, BlockFacts& facts);

// The sink for these rows, reduced as the job requires. `stored`: the size in the file, which determines the reduction.
[[nodiscard]] PictureSink makeSink(const SampleLayout& layout, const ReadJob& job, const BlockFacts& facts,
                                   const std::shared_ptr<ColorProfile>& source);

// Ends a picture with possibly missing rows: throws ReadFailure with Complete, else notes it in the answer.
void noteCutOff(int rowsThere, int rows, const std::string& cause, const ReadJob& job, ReadAnswer& answer);
void noteDamage(const std::string& text, const ReadJob& job, ReadAnswer& answer);

} // namespace orvo::io
