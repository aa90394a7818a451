#include "made_folder.hpp"

#include <orvo_extensions/failure.hpp>

#include <system_error>

namespace orvo::jobs {

namespace fs = std::filesystem;

MadeFolder::MadeFolder(const fs::path& folder)
{
    std::error_code error;
    const fs::path whole = fs::absolute(folder, error);
    if (error)
        throw FailureError({FailureKind::Internal, folder, "the working folder is missing: " + error.message()});
    // Absolute and without "..", so that missing parents are found by going up.
    for (fs::path each = whole.lexically_normal(); !fs::exists(each, error); each = each.parent_path())
        if (each.has_filename())
            made.push_back(each);
    fs::create_directories(folder, error);
    if (error)
        throw FailureError({kindOfSystemError(error.value(), FailureKind::Internal), folder,
                            "cannot create the folder: " + error.message()});
}

MadeFolder::~MadeFolder()
{
    std::error_code notEmpty; // then it remains
    for (const fs::path& each : made)
        fs::remove(each, notEmpty);
}

} // namespace orvo::jobs
