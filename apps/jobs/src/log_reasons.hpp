/// Finds in the log of a run why it failed.
#pragma once

#include <orvo_logger/log_capture.hpp>

#include <filesystem>
#include <string>
#include <vector>

namespace orvo::jobs {

/// What an exception or a line of the log says of a failure, as one line for people: without the name of the function,
/// which they do not know, and in plain words where memory was wanting, whoever says so.
[[nodiscard]] std::string forPeople(const std::string& error);

/// Why `file` could not be read: the first complaint in `log` that names it; else `otherwise`. Always names the file.
[[nodiscard]] std::string reasonForFile(const LogCapture& log, const std::filesystem::path& file,
                                        const std::string& otherwise);

/// Why an operation on `files` gave nothing: the complaint about the first file that could not be opened; else the last
/// error; else the last warning; else `otherwise`.
[[nodiscard]] std::string reasonOfRun(const LogCapture& log, const std::vector<std::filesystem::path>& files,
                                      const std::string& otherwise);

/// Why an operation on `file` alone gave nothing: the last error; else the first complaint that names the file; else
/// `otherwise`. Always names the file.
[[nodiscard]] std::string reasonOfRunOn(const LogCapture& log, const std::filesystem::path& file,
                                        const std::string& otherwise);

} // namespace orvo::jobs
