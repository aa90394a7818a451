// What a codec is asked and what it gives. One source file per format.
#pragma once

#include "metadata.hpp"
#include "picture_sink.hpp"
#include "source_file.hpp"

#include <orvo_io/image_reader.hpp>

#include <functional>
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
    Reduced, // a picture that is smaller, but at least ReadJob::side long, if the format makes that cheaper
    Full
};

struct ReadJob
{
    ReadDepth depth = ReadDepth::Full;
    int side = 0; // with Reduced
    ImageReaderOpenFlag flags = ImageReaderOpenFlag::Bracket;
    std::shared_ptr<ColorProfile> target; // with WorkingSpace
    std::int64_t maxPixels = 0;
    std::shared_ptr<const ImageMetadata> known;
    std::string part;
    int index = -1;
    std::function<bool()> cancel;
    bool wantPreview = false;
    int orientation = 0;                  // not 0: instead of the file's own; for embedded previews
    std::shared_ptr<ColorProfile> assume; // the profile where the file has none; empty: sRGB

    [[nodiscard]] bool wants(ImageReaderOpenFlag bit) const { return has(flags, bit); }
};

struct ReadAnswer
{
    std::shared_ptr<RGBPicture> picture; // empty with Facts
    BlockFacts facts;                    // record complete but for the measured exposure offset
    std::shared_ptr<AdditionalRawMetadata> raw;
    std::string cutOff; // not empty: what is missing; an answer to a job with Complete never has it
};

// Each throws ReadFailure, Cancelled, or what std::exception there is.
[[nodiscard]] ReadAnswer readJpeg(const SourceFile& file, const ReadJob& job);
[[nodiscard]] ReadAnswer readPng(const SourceFile& file, const ReadJob& job);
[[nodiscard]] ReadAnswer readTiff(const SourceFile& file, const ReadJob& job);
[[nodiscard]] ReadAnswer readWebP(const SourceFile& file, const ReadJob& job);
[[nodiscard]] ReadAnswer readExr(const SourceFile& file, const ReadJob& job);
[[nodiscard]] ReadAnswer readHeif(const SourceFile& file, const ReadJob& job);
[[nodiscard]] ReadAnswer readRaw(const SourceFile& file, const ReadJob& job);
// Whether LibRaw takes the file for raw.
[[nodiscard]] bool librawKnows(const std::filesystem::path& path);

// Throws ReadFailure if the picture is empty, larger than the job allows, or larger than `leastBytes` of file could
// hold (0: not known).
void checkExtent(const SourceFile& file, const ReadJob& job, std::int64_t width, std::int64_t height,
                 std::int64_t leastBytes);

// Throws ReadFailure unless the job asks for the only picture of a file that holds one.
void refuseParts(const ReadJob& job);

// The profile of the file: of its ICC block if that serves so many colours, else the EXIF's, else sRGB (empty for
// CMYK). Always set in facts.record.fileProfile, where CMYK without a profile counts as sRGB.
[[nodiscard]] std::shared_ptr<ColorProfile> settleProfile(std::span<const unsigned char> icc, int colors,
                                                          const ReadJob& job, BlockFacts& facts);

// Fills the record's size, and puts the known record in place of the one that was read.
void settleRecord(_Size<int> stored, const ReadJob& job, BlockFacts& facts);

// The sink for these rows, reduced as the job wants. `stored`: the size in the file, from which the reduction follows.
[[nodiscard]] PictureSink makeSink(const SampleLayout& layout, const ReadJob& job, const BlockFacts& facts,
                                   const std::shared_ptr<ColorProfile>& source);

// Ends a picture whose rows may be missing: throws ReadFailure with Complete, else notes it in the answer.
void noteCutOff(int rowsThere, int rows, const std::string& cause, const ReadJob& job, ReadAnswer& answer);
void noteDamage(const std::string& text, const ReadJob& job, ReadAnswer& answer);

} // namespace orvo::io
