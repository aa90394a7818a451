// A picture file for the codecs: an open stream of known size, and a name for messages.
#pragma once

#include <orvo_common/failure.hpp>

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <span>
#include <string>
#include <vector>

namespace orvo::io {

// The file cannot be read. The text states what was expected and what was found; the reader names the file.
class ReadFailure : public FailureError
{
public:
    explicit ReadFailure(const std::string& text) : FailureError({FailureKind::UnreadableFile, {}, text}) {}
};

enum class FileKind
{
    Jpeg,
    Png,
    Tiff,
    WebP,
    Exr,
    Heif,
    Raw,
    Unknown
};

class SourceFile
{
public:
    // Opens a regular file. Throws ReadFailure on anything else (folder, pipe, device, missing, empty).
    explicit SourceFile(const std::filesystem::path& path);
    // A file in memory, which must outlive this object.
    explicit SourceFile(std::span<const unsigned char> bytes);

    [[nodiscard]] std::FILE* stream() const { return handle.get(); }
    [[nodiscard]] std::int64_t size() const { return bytes; }
    // Empty for a file in memory.
    [[nodiscard]] const std::filesystem::path& path() const { return location; }

    // Detects the format from the first bytes. Leaves the stream at its start.
    [[nodiscard]] FileKind sniff() const;
    // The first bytes, for messages: "it begins with 68 65 6c 6c 6f".
    [[nodiscard]] std::string describeBeginning() const;
    void rewind() const;
    // The whole file. Throws ReadFailure if it is larger than `limit` or cannot be read.
    [[nodiscard]] std::vector<unsigned char> readAll(std::int64_t limit) const;

private:
    struct Close
    {
        void operator()(std::FILE* file) const noexcept { std::fclose(file); }
    };

    [[nodiscard]] std::vector<unsigned char> beginning() const;

    std::filesystem::path location;
    std::unique_ptr<std::FILE, Close> handle;
    std::int64_t bytes = 0;
};

} // namespace orvo::io
