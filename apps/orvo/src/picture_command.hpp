/// Shared by commands that make pictures from pictures: options, running, and reporting the result.
#pragma once

#include "json_text.hpp"
#include "options.hpp"

#include <jobs/input_files.hpp>
#include <jobs/picture_job.hpp>
#include <orvo_extensions/hdr.hpp>

#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace orvo::cli {

inline constexpr const char* kExitCodes = "\nExit codes: 0 done, 1 failed, 2 wrong usage, 130 cancelled (Ctrl-C).\n";

/// Where a command needs pictures and got none.
inline constexpr const char* kNoFiles = "FILES is required";

inline constexpr const char* kReadable = "JPEG, PNG, TIFF, WebP, EXR, HEIC, AVIF or camera raw";

/// Where the result goes.
struct OutputOptions
{
    std::string file; ///< empty: beside the first input
    bool force = false;
};

/// Options of a run that do not concern the job.
struct RunOptions
{
    bool quiet = false;
    bool json = false;
    std::string log;
};

/// The positional argument FILES: the pictures, or folders of them. May be missing; readInput() complains.
void bindFiles(Options& app, std::vector<std::string>& files);
/// The pictures of the given files and folders; notes on standard error what folders have besides, unless `isQuiet`.
/// Empty after an error message, with the exit code in `exitCode`.
[[nodiscard]] std::optional<std::vector<std::filesystem::path>> readInput(const std::string& command,
                                                                          const std::vector<std::string>& given,
                                                                          const std::filesystem::path& output,
                                                                          bool isQuiet, int& exitCode);
/// --output and --force. `done`: what a result without a name is called after its input, such as "merged".
void bindOutput(Options& app, OutputOptions& output, const std::string& done);
/// The path of the result. One without a name replaces nothing unless forced, so the request is set to keep files.
[[nodiscard]] std::filesystem::path outputPath(const OutputOptions& output, const std::filesystem::path& firstInput,
                                               const std::string& done, jobs::PictureJobRequest& request);
/// --strict.
void bindStrict(Options& app, jobs::PictureJobRequest& request, const std::string& about);
/// --quality and --bits.
void bindFormat(Options& app, jobs::PictureJobRequest& request);
/// An option that counts the FILES from 1, and its conversion for the jobs.
void bindFrameNumber(Options& app, const std::string& name, std::optional<int>& number, const std::string& about);
[[nodiscard]] std::optional<std::size_t> frameIndex(const std::optional<int>& number);
/// --deghost, and its conversion for the jobs.
void bindDeghost(Options& app, std::string& amount);
[[nodiscard]] std::optional<DeghostAmount> deghostAmount(const std::string& amount);
/// --chromatic and --lens.
void bindCorrections(Options& app, bool& chromaticAberrations, bool& lensCorrection);
/// --threads, --quiet, --json, --log.
void bindRun(Options& app, jobs::PictureJobRequest& request, RunOptions& run);

/// A command to run.
struct PictureCommand
{
    std::string name;
    RunOptions run;
    std::vector<std::filesystem::path> inputs;
    std::filesystem::path output; ///< a file, or a folder for several
    std::function<void(const jobs::JobCallbacks&)> job;
    const jobs::RunReport& report;                ///< filled by `job`
    std::function<nlohmann::ordered_json()> json; ///< the result, without the report of the run
    std::function<std::string()> sentence;        ///< the same as text, without the time
};

/// For a command whose pictures need marks of their own. The exit code after an error message if `file` is a folder.
[[nodiscard]] std::optional<int> refuseFolder(const std::string& command, const std::string& file);

/// Prints an error and the hint at the help. Returns kWrongUsage.
[[nodiscard]] int wrongUsage(const std::string& command, const std::string& message);

/// Starts the log of a run that asks for one. False after an error message: one of the pictures would be the log.
[[nodiscard]] bool openLog(const std::string& command, const RunOptions& run,
                           const std::vector<std::filesystem::path>& inputs,
                           const std::vector<std::filesystem::path>& outputs);

/// Runs the job with progress, Ctrl-C and the log, prints its result, and returns the exit code.
[[nodiscard]] int runPictureCommand(const PictureCommand& command);

/// Members "size", "bits" and "profile" after "output".
[[nodiscard]] nlohmann::ordered_json writtenAsJson(const jobs::WrittenPicture& picture);
[[nodiscard]] nlohmann::ordered_json sizeAsJson(_Size<int> size);
/// "out.jpg: 300 x 200 pixels"
[[nodiscard]] std::string writtenAsText(const jobs::WrittenPicture& picture);
/// "3 frames", "1 frame"
[[nodiscard]] std::string counted(std::size_t count, const std::string& what);

} // namespace orvo::cli
