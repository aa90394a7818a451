/// A file that the loader has opened.
#pragma once

#include <orvo/image_loader.hpp>
#include <orvo_common/failure.hpp>

#include <filesystem>
#include <optional>
#include <vector>

namespace orvo {

/// Opens a file, and disposes of it at the end of the scope, so that an exception does not leave its picture in memory.
class LoadedDocument
{
public:
    explicit LoadedDocument(const std::filesystem::path& path)
        : bytes(ImageLoader::load(path)), file(path), reason(lastFailure())
    {}
    ~LoadedDocument() { ImageLoader::dispose(bytes); }
    LoadedDocument(const LoadedDocument&) = delete;
    LoadedDocument& operator=(const LoadedDocument&) = delete;

    /// Call it if there is no picture: states why, for lastFailure() of the enclosing call.
    void stateNoPicture() const
    {
        details::stateFailure(reason.value_or(Failure{FailureKind::UnreadableFile, file, "the file is not a picture"}));
    }

    const std::vector<unsigned char> bytes; ///< what the loader knows it by

private:
    const std::filesystem::path file;
    const std::optional<Failure> reason;
};

} // namespace orvo
