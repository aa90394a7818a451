#include "picture_command.hpp"

#include "job_watch.hpp"

#include <jobs/default_output.hpp>
#include <orvo_common/wide_path.hpp>
#include <orvo_logger/log_file.hpp>
#include <orvo_logger/logstream.hpp>

#include <algorithm>
#include <array>
#include <cstdio>
#include <string_view>
#include <system_error>
#include <utility>

namespace orvo::cli {
namespace {

/// The same for all paths to a file, which need not exist.
std::filesystem::path spelledOut(const std::filesystem::path& path)
{
    std::error_code error;
    const auto whole = std::filesystem::absolute(path, error);
    const auto real = std::filesystem::weakly_canonical(error ? path : whole, error);
    return error ? path.lexically_normal() : real;
}

/// Log lines are appended to any existing file, so it must not be one of the pictures.
bool logIsAPicture(std::filesystem::path log, const std::vector<std::filesystem::path>& inputs,
                   const std::vector<std::filesystem::path>& outputs)
{
    std::error_code missing; // a missing file is not equivalent to another
    if (std::filesystem::is_directory(log, missing))
        log /= kLogFileName;
    const auto isLog = [&](const std::filesystem::path& file) {
        return spelledOut(file) == spelledOut(log) || std::filesystem::equivalent(file, log, missing);
    };
    const auto isOutput = [&](const std::filesystem::path& output) {
        return !std::filesystem::is_directory(output, missing) && isLog(output);
    };
    return std::any_of(outputs.begin(), outputs.end(), isOutput) || std::any_of(inputs.begin(), inputs.end(), isLog);
}

constexpr std::array<std::pair<std::string_view, std::optional<DeghostAmount>>, 11> kDeghostAmounts = {{
    {"none", std::nullopt},
    {"lowest", DeghostAmount::Lowest},
    {"low", DeghostAmount::Low},
    {"medium", DeghostAmount::Medium},
    {"high", DeghostAmount::High},
    {"highest", DeghostAmount::Highest},
    {"0", DeghostAmount::Lowest},
    {"1", DeghostAmount::Low},
    {"2", DeghostAmount::Medium},
    {"3", DeghostAmount::High},
    {"4", DeghostAmount::Highest},
}};

double totalMilliseconds(const jobs::RunReport& report)
{
    double total = 0.0;
    for (const auto& step : report.steps)
        total += step.milliseconds;
    return total;
}

std::string asJson(const PictureCommand& command)
{
    const jobs::RunReport& report = command.report;
    nlohmann::ordered_json json = command.json();
    json["phases"] = nlohmann::ordered_json::array();
    for (const auto& step : report.steps)
        json["phases"].push_back({{"name", jobs::stepName(step.step)}, {"milliseconds", step.milliseconds}});
    json["milliseconds"] = totalMilliseconds(report);
    json["peak_memory_bytes"] = {{"process", report.peak.process}, {"planes", report.peak.planes}};
    json["warnings"] = report.warnings;
    return jsonText(json);
}

std::string asSentence(const PictureCommand& command)
{
    char time[32];
    constexpr double kMillisecondsPerSecond = 1000.0;
    std::snprintf(time, sizeof time, " in %.1f s\n", totalMilliseconds(command.report) / kMillisecondsPerSecond);
    return command.sentence() + time;
}

void runJob(const PictureCommand& command)
{
    const Talk talk = command.run.quiet ? Talk::Silent : command.run.json ? Talk::BarOnly : Talk::Full;
    JobWatch watch(talk);
    command.job(watch.callbacks());
}

} // namespace

void bindFiles(Options& app, std::vector<std::string>& files)
{
    app.add_option("FILES", files, std::string(kReadable) + ",\nor folders of them")->type_name("");
}

std::optional<std::vector<std::filesystem::path>> readInput(const std::string& command,
                                                            const std::vector<std::string>& given,
                                                            const std::filesystem::path& output, bool isQuiet,
                                                            int& exitCode)
{
    if (given.empty()) {
        exitCode = wrongUsage(command, kNoFiles);
        return std::nullopt;
    }
    try {
        auto input = jobs::inputFiles({given.begin(), given.end()}, output);
        if (!isQuiet)
            for (const std::string& note : jobs::leftOutNotes(input.leftOut))
                complain("note: " + note);
        if (!isQuiet)
            for (const auto& result : jobs::resultsAmong(input.files))
                complain("note: " + pathText(result) + ": by its name a result of orvo, but used like the other FILES");
        return std::move(input.files);
    } catch (const FailureError& error) {
        complain(error.what());
        exitCode = kFailed;
        return std::nullopt;
    }
}

void bindOutput(Options& app, OutputOptions& output, const std::string& done)
{
    app.add_option("-o,--output", output.file,
                   "the result: .jpg, .png, .tif or .exr\n(default: beside the first input, such as IMG_1-" + done +
                       ".jpg)")
        ->type_name("FILE");
    app.add_flag("--force", output.force, "without -o: replace an existing result");
}

std::filesystem::path outputPath(const OutputOptions& output, const std::filesystem::path& firstInput,
                                 const std::string& done, jobs::PictureJobRequest& request)
{
    if (!output.file.empty())
        return output.file;
    request.keepExisting = !output.force;
    return jobs::defaultOutput(firstInput, done);
}

void bindStrict(Options& app, jobs::PictureJobRequest& request, const std::string& about)
{
    app.add_flag("--strict", request.strict, about);
}

void bindFormat(Options& app, jobs::PictureJobRequest& request)
{
    app.add_option("--quality", request.jpegQuality, "quality of a JPEG, 1 to 100 (default: 95)")
        ->type_name("N")
        ->check(between(1, 100));
    app.add_option("--bits", request.bits,
                   "bits per sample: 8 or 16 in PNG and TIFF, 16 or 32 in EXR, 8 in JPEG\n"
                   "(default: as many as the deepest input has; 16 for raw files,\n"
                   "merged brackets and EXR)")
        ->type_name("N")
        ->check(between(8, 32));
}

void bindFrameNumber(Options& app, const std::string& name, std::optional<int>& number, const std::string& about)
{
    constexpr int kMostFrames = 1'000'000; // more than any bracket; the job knows the actual number
    app.add_option(name, number, about)->type_name("N")->check(between(1, kMostFrames));
}

std::optional<std::size_t> frameIndex(const std::optional<int>& number)
{
    return number ? std::optional(static_cast<std::size_t>(*number - 1)) : std::nullopt;
}

void bindDeghost(Options& app, std::string& amount)
{
    app.add_option("--deghost", amount,
                   "remove ghosts of moving subjects: none, lowest, low, medium, high, highest\n"
                   "(or 0 to 4 for lowest to highest)")
        ->type_name("X")
        ->check(oneOf(kDeghostAmounts));
}

std::optional<DeghostAmount> deghostAmount(const std::string& amount)
{
    const auto row = std::find_if(kDeghostAmounts.begin(), kDeghostAmounts.end(),
                                  [&](const auto& known) { return known.first == amount; });
    return row == kDeghostAmounts.end() ? std::nullopt : row->second;
}

void bindCorrections(Options& app, bool& chromaticAberrations, bool& lensCorrection)
{
    app.add_flag("--chromatic", chromaticAberrations, "remove colour fringes (chromatic aberration)");
    app.add_flag("--lens", lensCorrection, "correct distortion and dark corners; raw files only");
}

void bindRun(Options& app, jobs::PictureJobRequest& request, RunOptions& run)
{
    constexpr int kMostThreads = 1024; // more than any machine has cores
    app.add_option("--threads", request.threads, "use at most N processor cores")
        ->type_name("N")
        ->check(between(1, kMostThreads));
    app.add_flag("--quiet", run.quiet, "print nothing but errors");
    app.add_flag("--json", run.json, "print the result as JSON, for scripts");
    app.add_option("--log", run.log, "append log lines to FILE, or to log_orvo.txt in a folder")->type_name("FILE");
}

int wrongUsage(const std::string& command, const std::string& message)
{
    complain(message);
    hintAtHelp(command);
    return kWrongUsage;
}

std::optional<int> refuseFolder(const std::string& command, const std::string& file)
{
    std::error_code missing; // which the job reports
    if (!std::filesystem::is_directory(file, missing))
        return std::nullopt;
    return wrongUsage(command, file + ": this is a folder, but orvo " + command +
                                   " works on one picture at a time, since each needs its own mask");
}

bool openLog(const std::string& command, const RunOptions& run, const std::vector<std::filesystem::path>& inputs,
             const std::vector<std::filesystem::path>& outputs)
{
    if (run.log.empty())
        return true;
    if (logIsAPicture(run.log, inputs, outputs)) {
        (void)wrongUsage(command, run.log + ": the log would be written into a picture");
        return false;
    }
    setLogFile(run.log);
    return true;
}

int runPictureCommand(const PictureCommand& command)
{
    if (!openLog(command.name, command.run, command.inputs, {command.output}))
        return kWrongUsage;
    LOG(__orvolog() << "orvo " ORVO_VERSION " " << command.name << ": " << counted(command.inputs.size(), "file")
                    << " to " << pathText(command.output));
    runJob(command);
    const jobs::RunReport& report = command.report;
    LOG(__orvolog() << "orvo " << command.name << ": " << (report.done() ? "done" : report.message));
    if (!report.done())
        return reportOutcome(report, command.name.c_str());
    if (!command.run.quiet && !command.run.log.empty() && !logFileIsWhole())
        complain("note: " + command.run.log + ": lines of the log could not be written");
    if (!command.run.quiet)
        for (const std::string& warning : report.warnings)
            complain("note: " + warning);
    if (command.run.json)
        say(asJson(command));
    else if (!command.run.quiet)
        say(asSentence(command));
    return kDone;
}

nlohmann::ordered_json sizeAsJson(_Size<int> size) { return {{"width", size.width}, {"height", size.height}}; }

nlohmann::ordered_json writtenAsJson(const jobs::WrittenPicture& picture)
{
    return {{"output", pathText(picture.output)},
            {"size", sizeAsJson(picture.size)},
            {"bits", picture.bits},
            {"profile", picture.profile}};
}

std::string writtenAsText(const jobs::WrittenPicture& picture)
{
    return printable(pathText(picture.output)) + ": " + std::to_string(picture.size.width) + " x " +
           std::to_string(picture.size.height) + " pixels";
}

std::string counted(std::size_t count, const std::string& what)
{
    return std::to_string(count) + " " + what + (count == 1 ? "" : "s");
}

} // namespace orvo::cli
