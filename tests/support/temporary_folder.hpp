/// A folder of a test's own, removed with all that is in it.
#pragma once

#include <stdlib.h>

#include <filesystem>
#include <string>

namespace orvo::test {

class TemporaryFolder
{
public:
    TemporaryFolder()
    {
        std::string name = (std::filesystem::temp_directory_path() / "orvo_test_XXXXXX").string();
        folder = mkdtemp(name.data());
    }
    ~TemporaryFolder()
    {
        std::error_code ignored;
        std::filesystem::remove_all(folder, ignored);
    }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    [[nodiscard]] const std::filesystem::path& path() const { return folder; }
    [[nodiscard]] std::filesystem::path operator/(const std::string& name) const { return folder / name; }

private:
    std::filesystem::path folder;
};

} // namespace orvo::test
