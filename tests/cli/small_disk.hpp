/// A small disk for tests of full disks.
#pragma once

#include <sys/mount.h>

#include <filesystem>

namespace orvo::test {

/// A small mounted disk, unmounted by the destructor. Requires root.
class SmallDisk
{
public:
    explicit SmallDisk(const std::filesystem::path& place_) : place(place_)
    {
        std::filesystem::create_directory(place);
        mounted = ::mount("none", place.c_str(), "tmpfs", 0, "size=64k") == 0;
    }
    ~SmallDisk()
    {
        if (mounted)
            ::umount(place.c_str());
    }
    SmallDisk(const SmallDisk&) = delete;
    SmallDisk& operator=(const SmallDisk&) = delete;
    bool mounted = false;

private:
    std::filesystem::path place;
};

} // namespace orvo::test
