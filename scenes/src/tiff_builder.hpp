// Builds little-endian TIFF structures (TIFF 6.0, Adobe 1992): enough for EXIF blocks and DNG files.
#pragma once

#include <cstdint>
#include <map>
#include <span>
#include <string_view>
#include <vector>

namespace orvo::scenes {

/// One directory of tags. Offsets of picture data and of other directories are tags of type LONG that are set once
/// the position is known; this does not change their size.
class TiffDirectory
{
public:
    void bytes(std::uint16_t tag, std::span<const unsigned char> values);
    void undefined(std::uint16_t tag, std::string_view values);
    void text(std::uint16_t tag, std::string_view value);
    void shorts(std::uint16_t tag, std::span<const std::uint16_t> values);
    void number16(std::uint16_t tag, std::uint16_t value) { shorts(tag, std::span(&value, 1)); }
    void number32(std::uint16_t tag, std::uint32_t value);
    void longs(std::uint16_t tag, std::span<const std::uint32_t> values);
    /// As the fraction nearest to each value; not below 0.
    void rationals(std::uint16_t tag, std::span<const double> values);
    void signedRationals(std::uint16_t tag, std::span<const double> values);

    /// Bytes of the directory with the values that do not fit into its entries.
    [[nodiscard]] std::size_t size() const;
    /// Appends them to `file`, whose length must be even: values are at offsets counted from its start.
    void append(std::vector<unsigned char>& file) const;

private:
    struct Entry
    {
        std::uint16_t type = 0;
        std::uint32_t count = 0;
        std::vector<unsigned char> value;
    };
    std::map<std::uint16_t, Entry> entries; // TIFF requires the order of the tags
};

/// "II", 42 and the offset of the first directory, which follows at once.
void appendTiffHeader(std::vector<unsigned char>& file);
inline constexpr std::size_t kTiffHeaderBytes = 8;

} // namespace orvo::scenes
