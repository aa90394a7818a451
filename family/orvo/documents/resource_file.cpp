#include "documents/resource_file.hpp"

#include <orvo_common/wide_path.hpp>

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <stdexcept>
#include <string>
#include <system_error>

namespace orvo {

ResourceFile::ResourceFile(const std::filesystem::path& path_, Use use_) : path(path_), use(use_)
{
    const int flags = use == Use::Read ? O_RDONLY : O_WRONLY | O_CREAT | O_EXCL;
    const int number = ::open(path.c_str(), flags | O_CLOEXEC | O_NOFOLLOW, 0600);
    if (number < 0)
        fail("cannot be opened", errno);
    handle = ::fdopen(number, use == Use::Read ? "rb" : "wb");
    if (handle == nullptr) {
        const int error = errno;
        ::close(number);
        fail("cannot be opened", error);
    }
}

ResourceFile::~ResourceFile()
{
    if (handle == nullptr)
        return;
    std::fclose(handle);
    if (use == Use::Write)
        ::unlink(path.c_str());
}

void ResourceFile::write(const void* bytes, std::size_t count)
{
    if (std::fwrite(bytes, 1, count, handle) != count)
        fail("cannot be written", errno);
}

void ResourceFile::read(void* bytes, std::size_t count)
{
    errno = 0;
    if (std::fread(bytes, 1, count, handle) != count)
        fail("cannot be read", errno != 0 ? errno : EIO);
}

void ResourceFile::finish()
{
    std::FILE* const closing = handle;
    handle = nullptr;
    if (std::fclose(closing) != 0) {
        const int error = errno;
        ::unlink(path.c_str());
        fail("cannot be written", error);
    }
}

void ResourceFile::fail(const char* what, int systemError) const
{
    throw std::runtime_error("The temporary file " + pathText(path) + " " + what + ": " +
                             std::system_category().message(systemError));
}

} // namespace orvo
