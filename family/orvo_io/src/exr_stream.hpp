// OpenEXR streams over a C file.
#pragma once

#include <ImfIO.h>

#include <cerrno>
#include <cstdio>
#include <stdexcept>

namespace orvo::io {

class ExrInput final : public Imf::IStream
{
public:
    explicit ExrInput(std::FILE* stream_) : Imf::IStream("picture"), stream(stream_) {}
    bool read(char bytes[], int count) override
    {
        if (count < 0 ||
            std::fread(bytes, 1, static_cast<std::size_t>(count), stream) != static_cast<std::size_t>(count))
            throw std::runtime_error("the file ends early");
        return std::feof(stream) == 0;
    }
    std::uint64_t tellg() override { return static_cast<std::uint64_t>(ftello(stream)); }
    void seekg(std::uint64_t position) override { fseeko(stream, static_cast<off_t>(position), SEEK_SET); }
    void clear() override { std::clearerr(stream); }

private:
    std::FILE* stream;
};

class ExrOutput final : public Imf::OStream
{
public:
    explicit ExrOutput(std::FILE* stream_) : Imf::OStream("picture"), stream(stream_) {}
    void write(const char bytes[], int count) override
    {
        errno = 0;
        if (std::fwrite(bytes, 1, static_cast<std::size_t>(count), stream) != static_cast<std::size_t>(count)) {
            if (failed == 0)
                failed = errno != 0 ? errno : EIO;
            throw std::runtime_error("cannot be written");
        }
    }
    std::uint64_t tellp() override { return static_cast<std::uint64_t>(ftello(stream)); }
    void seekp(std::uint64_t position) override { fseeko(stream, static_cast<off_t>(position), SEEK_SET); }
    // errno of the first failed write, 0 for none.
    [[nodiscard]] int systemError() const { return failed; }

private:
    std::FILE* stream;
    int failed = 0;
};

} // namespace orvo::io
