#include "source_file.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <string_view>

namespace orvo::io {
namespace {

constexpr std::size_t kSniffedBytes = 32;

bool has(std::string_view text, std::size_t at, std::string_view part)
{
    return text.substr(std::min(at, text.size()), part.size()) == part;
}

bool isHeifBrand(std::string_view text)
{
    static constexpr std::array<std::string_view, 10> kBrands = {"heic", "heix", "heim", "heis", "hevc",
                                                                 "hevx", "mif1", "msf1", "avif", "avis"};
    return std::any_of(kBrands.begin(), kBrands.end(), [&](std::string_view brand) { return has(text, 8, brand); });
}

// First bytes of camera files that are not TIFF. LibRaw recognises the TIFF-based ones, DNG among them.
bool isRawMagic(std::string_view text)
{
    using namespace std::string_view_literals;
    return has(text, 4, "ftypcrx ") || has(text, 0, "FUJIFILMCCD-RAW") || has(text, 0, "IIRO") ||
           has(text, 0, "IIRS") || has(text, 0, "MMOR") || has(text, 0, "IIU\0"sv) || has(text, 0, "\0MRM"sv) ||
           has(text, 6, "HEAPCCDR") || has(text, 0, "FOVb") || has(text, 0, "IIIITwaR") || has(text, 0, "MMMMRawT") ||
           has(text, 0, "ARRI") || has(text, 0, "DSC-Image") || has(text, 0, "NOKIARAW") ||
           has(text, 0, "PVRLC"); // the last marks some scanner backs
}

std::string reason(int error) { return std::generic_category().message(error); }

} // namespace

SourceFile::SourceFile(const std::filesystem::path& path) : location(path)
{
    // O_NONBLOCK: opening a pipe without a writer would block forever.
    const int descriptor = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
    if (descriptor < 0)
        throw ReadFailure("cannot be opened: " + reason(errno));
    struct stat status = {};
    if (::fstat(descriptor, &status) != 0 || !S_ISREG(status.st_mode)) {
        ::close(descriptor);
        throw ReadFailure(S_ISDIR(status.st_mode) ? "expected a picture file, found a folder"
                                                  : "expected a picture file, found a pipe or device");
    }
    bytes = static_cast<std::int64_t>(status.st_size);
    handle.reset(::fdopen(descriptor, "rb"));
    if (!handle) {
        const int error = errno;
        ::close(descriptor);
        throw ReadFailure("cannot be opened: " + reason(error));
    }
    if (bytes == 0)
        throw ReadFailure("expected a picture file, found an empty file");
}

SourceFile::SourceFile(std::span<const unsigned char> memory) : bytes(static_cast<std::int64_t>(memory.size()))
{
    if (memory.empty())
        throw ReadFailure("the embedded picture is empty");
    // "rb" never writes, so the const is kept.
    handle.reset(::fmemopen(const_cast<unsigned char*>(memory.data()), memory.size(), "rb"));
    if (!handle)
        throw ReadFailure("cannot be opened: " + reason(errno));
}

void SourceFile::rewind() const { std::rewind(handle.get()); }

std::vector<unsigned char> SourceFile::beginning() const
{
    std::vector<unsigned char> first(kSniffedBytes);
    rewind();
    first.resize(std::fread(first.data(), 1, first.size(), handle.get()));
    rewind();
    return first;
}

FileKind SourceFile::sniff() const
{
    using namespace std::string_view_literals;
    const std::vector<unsigned char> first = beginning();
    const std::string_view text(reinterpret_cast<const char*>(first.data()), first.size());
    if (has(text, 0, "\xFF\xD8\xFF"))
        return FileKind::Jpeg;
    if (has(text, 0, "\x89PNG\r\n\x1a\n"))
        return FileKind::Png;
    if (has(text, 0, "RIFF") && has(text, 8, "WEBP"))
        return FileKind::WebP;
    if (has(text, 0, "\x76\x2f\x31\x01"))
        return FileKind::Exr;
    if (has(text, 4, "ftyp") && isHeifBrand(text))
        return FileKind::Heif;
    if (isRawMagic(text))
        return FileKind::Raw;
    if (has(text, 0, "II*\0"sv) || has(text, 0, "MM\0*"sv) || has(text, 0, "II+\0"sv) || has(text, 0, "MM\0+"sv))
        return FileKind::Tiff;
    return FileKind::Unknown;
}

std::string SourceFile::describeBeginning() const
{
    constexpr std::size_t kShown = 8; // bytes
    static constexpr char kDigits[] = "0123456789abcdef";
    std::string text = "it begins with";
    const std::vector<unsigned char> first = beginning();
    for (std::size_t i = 0; i < std::min(kShown, first.size()); ++i) {
        text += ' ';
        text += kDigits[first[i] >> 4];
        text += kDigits[first[i] & 15];
    }
    return text;
}

std::vector<unsigned char> SourceFile::readAll(std::int64_t limit) const
{
    if (bytes > limit)
        throw ReadFailure("the file has " + std::to_string(bytes) + " bytes, the limit is " + std::to_string(limit));
    std::vector<unsigned char> all(static_cast<std::size_t>(bytes));
    rewind();
    if (std::fread(all.data(), 1, all.size(), handle.get()) != all.size())
        throw ReadFailure("the file cannot be read to its end");
    rewind();
    return all;
}

} // namespace orvo::io
