/// A temporary folder of a test, removed with its contents.
#pragma once

#include <stdlib.h>

#include <filesystem>
#include <stdexcept>
#include <string>

namespace orvo::test {

class TemporaryFolder
{
public:
    TemporaryFolder()
    {
        std::string name = (std::filesystem::temp_directory_path() / "orvo_test_XXXXXX").string();
        if (::mkdtemp(name.data()) == nullptr)
            throw std::runtime_error("cannot create a temporary folder like " + name);
        folder = name;
    }
    ~TemporaryFolder()
    {
        std::error_code ignored;
        std::filesystem::remove_all(folder, ignored);
    }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    [[nodiscard]] const std::filesystem::path& path() const { return folder; }
    operator const std::filesystem::path&() const { return folder; } // usable wherever a path is expected
    [[nodiscard]] std::filesystem::path operator/(const std::string& name) const { return folder / name; }

private:
    std::filesystem::path folder;
};

} // namespace orvo::test
