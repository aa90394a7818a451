#include "dng_tags.hpp"

#include <algorithm>
#include <map>
#include <numeric>
#include <optional>

namespace orvo::io {
namespace {

// TIFF 6.0 and DNG 1.4 (Adobe 2012).
enum Tag : std::uint16_t
{
    kWidth = 256,
    kHeight = 257,
    kBits = 258,
    kCompression = 259,
    kPhotometric = 262,
    kStripOffsets = 273,
    kSamples = 277,
    kStripBytes = 279,
    kTileOffsets = 324,
    kTileBytes = 325,
    kSubDirectories = 330,
};
constexpr std::uint64_t kFilterArray = 32803;
constexpr std::uint64_t kLinearRaw = 34892;
constexpr std::uint64_t kUncompressed = 1;

using Values = std::vector<std::uint64_t>;
using Directory = std::map<std::uint16_t, Values>;

class TagReader
{
public:
    explicit TagReader(const SourceFile& file_) : file(file_)
    {
        file.rewind();
        const auto head = bytesAt(0, 8);
        if (!head)
            return;
        isLittle = (*head)[0] == 'I';
        if (number(head->data() + 2, 2) == 42) // 43: BigTIFF
            first = number(head->data() + 4, 4);
    }

    // Directories of the chain and those below them.
    [[nodiscard]] std::vector<Directory> directories() const
    {
        constexpr std::size_t kMost = 64; // a damaged file may lead in circles
        std::vector<Directory> all;
        Values open = first != 0 ? Values{first} : Values{};
        while (!open.empty() && all.size() < kMost) {
            const std::uint64_t at = open.back();
            open.pop_back();
            std::uint64_t next = 0;
            auto directory = read(at, next);
            if (!directory)
                continue;
            if (next != 0)
                open.push_back(next);
            const Values& below = (*directory)[kSubDirectories];
            open.insert(open.end(), below.begin(), below.end());
            all.push_back(std::move(*directory));
        }
        return all;
    }

private:
    const SourceFile& file;
    bool isLittle = true;
    std::uint64_t first = 0;

    [[nodiscard]] std::optional<std::vector<unsigned char>> bytesAt(std::uint64_t at, std::size_t count) const
    {
        const auto length = static_cast<std::uint64_t>(file.size());
        if (count > length || at > length - count)
            return std::nullopt;
        std::vector<unsigned char> bytes(count);
        if (fseeko(file.stream(), static_cast<off_t>(at), SEEK_SET) != 0 ||
            std::fread(bytes.data(), 1, count, file.stream()) != count)
            return std::nullopt;
        return bytes;
    }

    [[nodiscard]] std::uint64_t number(const unsigned char* bytes, std::size_t count) const
    {
        std::uint64_t result = 0;
        for (std::size_t i = 0; i < count; ++i)
            result = result << 8 | bytes[isLittle ? count - 1 - i : i];
        return result;
    }

    // BYTE, SHORT and LONG only; other types and values beyond the file count as absent.
    [[nodiscard]] Values valuesOf(const unsigned char* entry) const
    {
        const std::uint64_t type = number(entry + 2, 2);
        const std::size_t each = type == 1 ? 1 : type == 3 ? 2 : type == 4 || type == 13 ? 4 : 0;
        const std::uint64_t count = number(entry + 4, 4);
        if (each == 0 || count == 0)
            return {};
        const auto size = static_cast<std::size_t>(count) * each;
        const auto bytes = size <= 4 ? std::optional(std::vector<unsigned char>(entry + 8, entry + 12))
                                     : bytesAt(number(entry + 8, 4), size);
        Values values;
        if (bytes)
            for (std::size_t i = 0; i < count; ++i)
                values.push_back(number(bytes->data() + i * each, each));
        return values;
    }

    [[nodiscard]] std::optional<Directory> read(std::uint64_t at, std::uint64_t& next) const
    {
        constexpr std::size_t kEntry = 12; // bytes
        const auto head = bytesAt(at, 2);
        if (!head)
            return std::nullopt;
        const auto count = static_cast<std::size_t>(number(head->data(), 2));
        const auto bytes = bytesAt(at + 2, count * kEntry + 4);
        if (!bytes)
            return std::nullopt;
        Directory directory;
        for (std::size_t i = 0; i < count; ++i) {
            const unsigned char* const entry = bytes->data() + i * kEntry;
            directory[static_cast<std::uint16_t>(number(entry, 2))] = valuesOf(entry);
        }
        next = number(bytes->data() + count * kEntry, 4);
        return directory;
    }
};

std::uint64_t valueOf(const Directory& directory, Tag tag, std::uint64_t otherwise)
{
    const auto found = directory.find(tag);
    return found == directory.end() || found->second.empty() ? otherwise : found->second.front();
}

[[noreturn]] void refuse(const std::string& text) { throw ReadFailure("not a readable DNG: " + text); }

void checkSamples(const SourceFile& file, const Directory& directory)
{
    const bool tiled = directory.count(kTileOffsets) != 0;
    if (tiled && directory.count(kStripOffsets) != 0)
        refuse("its picture is said to be in strips and in tiles");
    const auto offsets = directory.find(tiled ? kTileOffsets : kStripOffsets);
    const auto counts = directory.find(tiled ? kTileBytes : kStripBytes);
    if (offsets == directory.end() || counts == directory.end() || offsets->second.size() != counts->second.size())
        refuse("the places and the lengths of its samples do not fit together");
    if (valueOf(directory, kCompression, kUncompressed) != kUncompressed)
        return;
    const std::uint64_t bits = valueOf(directory, kBits, 1) * valueOf(directory, kSamples, 1);
    const std::uint64_t needed = (valueOf(directory, kWidth, 0) * bits + 7) / 8 * valueOf(directory, kHeight, 0);
    const std::uint64_t found = std::accumulate(counts->second.begin(), counts->second.end(), std::uint64_t{0});
    const auto length = static_cast<std::uint64_t>(file.size());
    if (needed > std::min(found, length))
        refuse("its samples need " + std::to_string(needed) + " bytes, it has " +
               std::to_string(std::min(found, length)));
}

} // namespace

void checkDngTags(const SourceFile& file, _Size<int> raw)
{
    const std::vector<Directory> all = TagReader(file).directories();
    std::string announced;
    for (const Directory& directory : all) {
        const std::uint64_t photometric = valueOf(directory, kPhotometric, 0);
        if (photometric != kFilterArray && photometric != kLinearRaw)
            continue;
        const std::uint64_t width = valueOf(directory, kWidth, 0);
        const std::uint64_t height = valueOf(directory, kHeight, 0);
        if (width == static_cast<std::uint64_t>(raw.width) && height == static_cast<std::uint64_t>(raw.height))
            return checkSamples(file, directory);
        announced = std::to_string(width) + " x " + std::to_string(height);
    }
    if (!announced.empty())
        refuse("it announces " + announced + " pixels, but would be read as " + std::to_string(raw.width) + " x " +
               std::to_string(raw.height));
}

} // namespace orvo::io
