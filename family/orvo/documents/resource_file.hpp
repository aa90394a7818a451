// A temporary file of sample planes.
#pragma once

#include <cstddef>
#include <cstdio>
#include <filesystem>

namespace orvo {

// Every member throws std::runtime_error that names the file and the system's error.
class ResourceFile
{
public:
    enum class Use
    {
        Read,
        Write // a new file, readable only by this user
    };

    ResourceFile(const std::filesystem::path& path, Use use);
    // Removes a file whose writing was not finished.
    ~ResourceFile();
    ResourceFile(const ResourceFile&) = delete;
    ResourceFile& operator=(const ResourceFile&) = delete;

    void write(const void* bytes, std::size_t count);
    void read(void* bytes, std::size_t count);
    // Flushes and closes the file.
    void finish();

private:
    [[noreturn]] void fail(const char* what, int systemError) const;

    std::filesystem::path path;
    Use use;
    std::FILE* handle = nullptr;
};

} // namespace orvo
