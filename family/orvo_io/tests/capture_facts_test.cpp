// Serial and sequence numbers, in the notes of several makers.
#include "test_files.hpp"

#include <orvo_io/capture_facts.hpp>

#include <gtest/gtest.h>

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace orvo::test {
namespace {

// Types of TIFF 6.0.
constexpr std::uint16_t kAscii = 2;
constexpr std::uint16_t kShort = 3;
constexpr std::uint16_t kLong = 4;
constexpr std::uint16_t kUndefined = 7;

std::string littleEndian(std::uint32_t value, int bytes)
{
    std::string text;
    for (int i = 0; i < bytes; ++i)
        text += static_cast<char>(value >> (8 * i) & 0xff);
    return text;
}

struct Entry
{
    std::uint16_t tag;
    std::uint16_t type;
    std::uint32_t count;
    std::string data;
};

Entry text(std::uint16_t tag, const std::string& value)
{
    return {tag, kAscii, static_cast<std::uint32_t>(value.size() + 1), value + '\0'};
}
Entry number(std::uint16_t tag, std::uint32_t value) { return {tag, kLong, 1, littleEndian(value, 4)}; }
Entry shorts(std::uint16_t tag, const std::vector<std::uint16_t>& values)
{
    std::string data;
    for (const std::uint16_t value : values)
        data += littleEndian(value, 2);
    return {tag, kShort, static_cast<std::uint32_t>(values.size()), data};
}

std::size_t lengthOf(const std::vector<Entry>& entries) { return 2 + 12 * entries.size() + 4; }

/// A directory that begins at `at`, counted from where its offsets count, with its longer values behind it.
std::string directory(const std::vector<Entry>& entries, std::size_t at)
{
    std::string head = littleEndian(static_cast<std::uint32_t>(entries.size()), 2);
    std::string values;
    for (const Entry& entry : entries) {
        head += littleEndian(entry.tag, 2) + littleEndian(entry.type, 2) + littleEndian(entry.count, 4);
        std::string field = entry.data;
        if (field.size() > 4) {
            field = littleEndian(static_cast<std::uint32_t>(at + lengthOf(entries) + values.size()), 4);
            values += entry.data;
        }
        field.resize(4, '\0');
        head += field;
    }
    return head + littleEndian(0, 4) + values;
}

/// What a maker writes before its directory, and where the offsets in that count from.
struct Maker
{
    std::string name;
    std::string header;
    std::optional<std::size_t> offsetsFrom; ///< within the note; empty: from the beginning of the EXIF block
};

const Maker kCanon{"Canon", "", std::nullopt};
const Maker kPanasonic{"Panasonic", std::string("Panasonic\0\0\0", 12), std::nullopt};
const Maker kSony{"SONY", std::string("SONY DSC \0\0\0", 12), std::nullopt};
const Maker kFujifilm{"FUJIFILM", "FUJIFILM" + littleEndian(12, 4), 0};
const Maker kNikon{"NIKON CORPORATION",
                   std::string("Nikon\0\2\x10\0\0", 10) + "II" + littleEndian(42, 2) + littleEndian(8, 4), 10};

class MakerNotes : public testing::Test
{
protected:
    /// The facts of a JPEG with this note, and more EXIF tags above that of the note.
    CaptureFacts factsOf(const Maker& maker, const std::vector<Entry>& note, const std::vector<Entry>& more = {}) const
    {
        constexpr std::uint16_t kMake = 0x010f;
        constexpr std::uint16_t kExifDirectory = 0x8769;
        constexpr std::uint16_t kMakerNote = 0x927c;
        const std::string header = "II" + littleEndian(42, 2) + littleEndian(8, 4);
        std::vector<Entry> first{text(kMake, maker.name), number(kExifDirectory, 0)};
        const std::size_t exifAt = header.size() + directory(first, header.size()).size();
        first[1] = number(kExifDirectory, static_cast<std::uint32_t>(exifAt));

        std::vector<Entry> exif{{kMakerNote, kUndefined, 0, {}}};
        exif.insert(exif.end(), more.begin(), more.end());
        const std::size_t noteAt = exifAt + lengthOf(exif); // its data come first
        const std::size_t directoryAt = maker.header.size() + (maker.offsetsFrom ? 0 : noteAt);
        exif[0].data = maker.header + directory(note, directoryAt - maker.offsetsFrom.value_or(0));
        exif[0].count = static_cast<std::uint32_t>(exif[0].data.size());
        return factsOfExif(header + directory(first, header.size()) + directory(exif, exifAt));
    }

    CaptureFacts factsOfExif(const std::string& block) const
    {
        const auto path = folder / "a.jpg";
        writeImage(path, *uniform(8, 8, 0.5f, 0.5f, 0.5f), writeSettingsForPath(path));
        Bytes bytes = readBytes(path);
        const std::string segment = std::string("Exif\0\0", 6) + block;
        const auto length = static_cast<std::uint16_t>(segment.size() + 2);
        const std::string marker{'\xff', '\xe1', static_cast<char>(length >> 8), static_cast<char>(length & 0xff)};
        const std::string app1 = marker + segment;
        bytes.insert(bytes.begin() + 2, app1.begin(), app1.end());
        writeBytes(path, bytes);
        return readCaptureFacts(path);
    }

    TemporaryFolder folder;
};

TEST_F(MakerNotes, SequenceNumbers)
{
    constexpr std::uint16_t kShotInfo = 0x0004; // of Canon: shorts, of which the tenth counts
    EXPECT_EQ(factsOf(kCanon, {shorts(kShotInfo, {68, 0, 0, 0, 0, 0, 0, 0, 0, 3, 0, 0})}).sequenceNumber, 3);
    EXPECT_EQ(factsOf(kPanasonic, {number(0x002b, 7)}).sequenceNumber, 7);
    EXPECT_EQ(factsOf(kSony, {shorts(0xb04a, {2})}).sequenceNumber, 2);
    EXPECT_EQ(factsOf(kFujifilm, {shorts(0x1101, {5})}).sequenceNumber, 5);
}

TEST_F(MakerNotes, PicturesOutsideOfASequenceHaveNoNumber)
{
    EXPECT_EQ(factsOf(kPanasonic, {number(0x002b, 0)}).sequenceNumber, std::nullopt);
    EXPECT_EQ(factsOf(kSony, {shorts(0xb04a, {0})}).sequenceNumber, std::nullopt);
    EXPECT_EQ(factsOf(kSony, {shorts(0xb04a, {65535})}).sequenceNumber, std::nullopt) << "not available";
    EXPECT_EQ(factsOf(kNikon, {text(0x001d, "6001234")}).sequenceNumber, std::nullopt);
}

TEST_F(MakerNotes, SerialNumbersOfTheBody)
{
    constexpr std::uint16_t kBodySerialNumber = 0xa431; // Exif 2.3
    EXPECT_EQ(factsOf(kCanon, {number(0x000c, 1234567)}).bodySerial, "1234567");
    EXPECT_EQ(factsOf(kNikon, {text(0x001d, "6001234")}).bodySerial, "6001234");
    EXPECT_EQ(factsOf(kSony, {shorts(0xb04a, {1})}, {text(kBodySerialNumber, "SN-77")}).bodySerial, "SN-77");
    EXPECT_EQ(factsOf(kCanon, {number(0x000c, 1234567)}, {text(kBodySerialNumber, "SN-77")}).bodySerial, "SN-77")
        << "the standard tag counts first";
}

} // namespace
} // namespace orvo::test
