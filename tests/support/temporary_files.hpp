/// Temporary files of the process.
#pragma once

#include <orvo_common/temporary_directory.hpp>

#include <filesystem>
#include <system_error>

namespace orvo::test {

/// Their number.
inline int temporaryFiles()
{
    int count = 0;
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator(getTemporaryDirectory(), error))
        count += entry.is_regular_file() ? 1 : 0;
    return count;
}

} // namespace orvo::test
