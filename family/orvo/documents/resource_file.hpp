// A temporary file of planes of samples.
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
        Write // a new file, readable by this user alone
    };

    ResourceFile(const std::filesystem::path& path, Use use);
    // A file that was being written and not finished is removed.
    ~ResourceFile();
    ResourceFile(const ResourceFile&) = delete;
    ResourceFile& operator=(const ResourceFile&) = delete;

    void write(const void* bytes, std::size_t count);
    void read(void* bytes, std::size_t count);
    // Everything has been handed to the system.
    void finish();

private:
    [[noreturn]] void fail(const char* what, int systemError) const;

    std::filesystem::path path;
    Use use;
    std::FILE* handle = nullptr;
};

} // namespace orvo
