/// What is looked at before a job starts, so that a mistake costs no minutes. Everything here throws JobError with the
/// line for people.
#pragma once

#include <jobs/hdr_job.hpp>
#include <orvo_core/image_metadata.hpp>
#include <orvo_io/image_writer.hpp>

#include <filesystem>
#include <memory>
#include <vector>

namespace orvo::jobs {

/// Values of the request that are wrong whatever lies on the disk. Returns the settings of the output's format.
[[nodiscard]] ImageWriteSettings checkRequest(const HdrJobRequest& request);

/// The path leads to a regular file with something in it that may be read.
void checkIsFile(const std::filesystem::path& path);

/// No two paths lead to one file, in whatever spelling. All of them exist.
void checkAllDiffer(const std::vector<std::filesystem::path>& paths);

/// The output is no input, no folder, not write-protected, and its folder takes new files. The inputs exist.
void checkOutput(const std::filesystem::path& output, const std::vector<std::filesystem::path>& inputs);

/// Metadata of a picture that is not larger than what the reader takes.
[[nodiscard]] std::shared_ptr<const ImageMetadata> checkIsPicture(const std::filesystem::path& path);

/// All pictures are of the size of the first. `metadata` stand at the indices of `paths`.
void checkSizesAgree(const std::vector<std::filesystem::path>& paths,
                     const std::vector<std::shared_ptr<const ImageMetadata>>& metadata);

} // namespace orvo::jobs
