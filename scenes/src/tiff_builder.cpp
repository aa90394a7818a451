#include "tiff_builder.hpp"

#include <cmath>
#include <utility>

namespace orvo::scenes {

namespace {

// Types of TIFF 6.0.
constexpr std::uint16_t kByte = 1;
constexpr std::uint16_t kAscii = 2;
constexpr std::uint16_t kShort = 3;
constexpr std::uint16_t kLong = 4;
constexpr std::uint16_t kRational = 5;
constexpr std::uint16_t kUndefined = 7;
constexpr std::uint16_t kSignedRational = 10;

constexpr std::size_t kInline = 4; // bytes of a value stored in the entry itself

void put16(std::vector<unsigned char>& out, std::uint32_t value)
{
    out.push_back(static_cast<unsigned char>(value & 0xffu));
    out.push_back(static_cast<unsigned char>((value >> 8) & 0xffu));
}

void put32(std::vector<unsigned char>& out, std::uint32_t value)
{
    put16(out, value & 0xffffu);
    put16(out, value >> 16);
}

// The last convergent of the continued fraction whose terms fit (Hardy and Wright, chapter 10): 1/60 becomes 1/60.
std::pair<std::uint32_t, std::uint32_t> asFraction(double value)
{
    constexpr double kLargest = 1e6;
    constexpr double kExact = 1e-12; // relative: only rounding of the double is left
    double rest = value;
    double p0 = 0, q0 = 1, p1 = 1, q1 = 0;
    constexpr int kTerms = 24;
    for (int term = 0; term < kTerms; ++term) {
        const double whole = std::floor(rest);
        const double p2 = whole * p1 + p0;
        const double q2 = whole * q1 + q0;
        if (q1 > 0 && (p2 > kLargest || q2 > kLargest))
            break;
        p0 = std::exchange(p1, p2);
        q0 = std::exchange(q1, q2);
        if (std::abs(p1 / q1 - value) <= kExact * value || rest - whole < 1e-9)
            break;
        rest = 1.0 / (rest - whole);
    }
    return {static_cast<std::uint32_t>(p1), static_cast<std::uint32_t>(q1)};
}

} // namespace

void TiffDirectory::bytes(std::uint16_t tag, std::span<const unsigned char> values)
{
    entries[tag] = {kByte, static_cast<std::uint32_t>(values.size()), {values.begin(), values.end()}};
}

void TiffDirectory::undefined(std::uint16_t tag, std::string_view values)
{
    entries[tag] = {kUndefined, static_cast<std::uint32_t>(values.size()), {values.begin(), values.end()}};
}

void TiffDirectory::text(std::uint16_t tag, std::string_view value)
{
    Entry entry{kAscii, static_cast<std::uint32_t>(value.size() + 1), {value.begin(), value.end()}};
    entry.value.push_back(0);
    entries[tag] = std::move(entry);
}

void TiffDirectory::shorts(std::uint16_t tag, std::span<const std::uint16_t> values)
{
    Entry entry{kShort, static_cast<std::uint32_t>(values.size()), {}};
    for (const std::uint16_t value : values)
        put16(entry.value, value);
    entries[tag] = std::move(entry);
}

void TiffDirectory::longs(std::uint16_t tag, std::span<const std::uint32_t> values)
{
    Entry entry{kLong, static_cast<std::uint32_t>(values.size()), {}};
    for (const std::uint32_t value : values)
        put32(entry.value, value);
    entries[tag] = std::move(entry);
}

void TiffDirectory::number32(std::uint16_t tag, std::uint32_t value) { longs(tag, std::span(&value, 1)); }

void TiffDirectory::rationals(std::uint16_t tag, std::span<const double> values)
{
    Entry entry{kRational, static_cast<std::uint32_t>(values.size()), {}};
    for (const double value : values) {
        const auto [above, below] = asFraction(value);
        put32(entry.value, above);
        put32(entry.value, below);
    }
    entries[tag] = std::move(entry);
}

void TiffDirectory::signedRationals(std::uint16_t tag, std::span<const double> values)
{
    Entry entry{kSignedRational, static_cast<std::uint32_t>(values.size()), {}};
    for (const double value : values) {
        const auto [above, below] = asFraction(std::abs(value));
        put32(entry.value, value < 0.0 ? 0u - above : above);
        put32(entry.value, below);
    }
    entries[tag] = std::move(entry);
}

std::size_t TiffDirectory::size() const
{
    std::size_t total = 2 + 12 * entries.size() + 4;
    for (const auto& [tag, entry] : entries)
        if (entry.value.size() > kInline)
            total += (entry.value.size() + 1) / 2 * 2;
    return total;
}

void TiffDirectory::append(std::vector<unsigned char>& file) const
{
    std::size_t valuesAt = file.size() + 2 + 12 * entries.size() + 4;
    std::vector<unsigned char> outside;
    put16(file, static_cast<std::uint32_t>(entries.size()));
    for (const auto& [tag, entry] : entries) {
        put16(file, tag);
        put16(file, entry.type);
        put32(file, entry.count);
        if (entry.value.size() <= kInline) {
            file.insert(file.end(), entry.value.begin(), entry.value.end());
            file.insert(file.end(), kInline - entry.value.size(), 0);
        } else {
            put32(file, static_cast<std::uint32_t>(valuesAt + outside.size()));
            outside.insert(outside.end(), entry.value.begin(), entry.value.end());
            if (outside.size() % 2 != 0)
                outside.push_back(0);
        }
    }
    put32(file, 0); // no next directory
    file.insert(file.end(), outside.begin(), outside.end());
}

void appendTiffHeader(std::vector<unsigned char>& file)
{
    put16(file, 0x4949);
    put16(file, 42);
    put32(file, kTiffHeaderBytes);
}

} // namespace orvo::scenes
