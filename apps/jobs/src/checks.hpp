/// What is looked at before a job starts, so that a mistake costs no minutes. Everything here throws JobRefusal or
/// FailureError.
#pragma once

#include <jobs/picture_job.hpp>
#include <orvo_core/image_metadata.hpp>
#include <orvo_extensions/hdr.hpp>
#include <orvo_io/image_writer.hpp>

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace orvo::jobs {

/// Inputs and output have names.
void checkFileNames(const std::vector<std::filesystem::path>& inputs, const std::filesystem::path& output);

/// The index, if there is one, is one of `count` frames. `name`: what it is called, such as "ghost reference".
void checkReference(const std::string& name, const std::optional<std::size_t>& index, std::size_t count);

void checkDeghostAmount(const std::optional<DeghostAmount>& amount);

/// Fast alignment only with alignment.
void checkFast(bool fast, bool align);

/// The amount of `name` is 0..1.
void checkShare(const std::string& name, float value);

/// Format by the ending of the name, with what the request says of samples and colours.
[[nodiscard]] ImageWriteSettings writeSettingsFor(const std::filesystem::path& output,
                                                  const PictureJobRequest& request);

/// The path leads to a regular file with something in it that may be read. `expected`: what it should be.
void checkIsFile(const std::filesystem::path& path, const std::string& expected = "picture");

/// No two paths lead to one file, in whatever spelling. All of them exist.
void checkAllDiffer(const std::vector<std::filesystem::path>& paths);

/// The output is no input, no folder, not write-protected, does not exist if the request keeps existing files, and its
/// folder takes new files. The inputs exist.
void checkOutput(const std::filesystem::path& output, const std::vector<std::filesystem::path>& inputs,
                 const PictureJobRequest& request);

/// Metadata of a picture that is not larger than what the reader takes.
[[nodiscard]] std::shared_ptr<const ImageMetadata> checkIsPicture(const std::filesystem::path& path);

/// The format can hold a picture of `size`; the line is the writer's own.
void checkHolds(const std::filesystem::path& output, ImageFileFormat format, _Size<int> size);

/// All pictures are of the size of the first. `metadata` stand at the indices of `paths`.
void checkSizesAgree(const std::vector<std::filesystem::path>& paths,
                     const std::vector<std::shared_ptr<const ImageMetadata>>& metadata);

} // namespace orvo::jobs
