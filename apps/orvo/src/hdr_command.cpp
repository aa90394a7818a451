/// orvo hdr: merges an exposure bracket.
#include "interrupt.hpp"
#include "json_text.hpp"
#include "options.hpp"
#include "progress_bar.hpp"

#include <jobs/hdr_job.hpp>
#include <orvo_logger/logstream.hpp>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <string>
#include <system_error>
#include <vector>

namespace orvo::cli {
namespace {

constexpr const char* kAbout = "Merges an exposure bracket (the same view taken several times, from dark to bright)\n"
                               "into one picture that shows detail in the shadows and in the highlights.\n"
                               "The frames may be given in any order. A single frame is enhanced by itself.\n";
constexpr const char* kExamples =
    "Examples:\n"
    "  Three frames from a tripod:\n"
    "    orvo hdr dark.jpg middle.jpg bright.jpg -o merged.jpg\n"
    "  Raw frames taken by hand, people walking, kept as in the second file:\n"
    "    orvo hdr a.dng b.dng c.dng -o merged.tif --align --deghost 2 --ghost-reference 2\n"
    "  A file whose name begins with a dash:\n"
    "    orvo hdr -o merged.jpg -- -1.jpg -2.jpg -3.jpg\n"
    "\n"
    "Exit codes: 0 done, 1 failed, 2 wrong usage, 130 cancelled (Ctrl-C).\n";

struct HdrOptions
{
    std::vector<std::string> files;
    std::string output;
    std::optional<int> deghost;
    std::optional<int> ghostReference;
    jobs::HdrJobRequest request;
    bool quiet = false;
    bool json = false;
    std::string log;
};

void bindMergeOptions(Options& app, HdrOptions& options)
{
    constexpr int kMostFrames = 1'000'000; // beyond any bracket; the job knows how many there are
    auto& request = options.request;
    app.add_flag("--align", request.align, "the frames were taken by hand: bring them into line");
    app.add_option("--deghost", options.deghost, "take out ghosts of what moved, 0 (least) to 4 (most)")
        ->type_name("N")
        ->check(between(0, 4));
    app.add_option("--ghost-reference", options.ghostReference,
                   "keep what moved as it is in the Nth of the FILES, from 1")
        ->type_name("N")
        ->check(between(1, kMostFrames));
    app.add_flag("--chromatic", request.chromaticAberrations, "remove colour fringes (chromatic aberration)");
    app.add_flag("--lens", request.lensCorrection, "correct distortion and dark corners; raw files only");
    app.add_option("--white-balance", request.whiteBalance, "remove a colour cast, 0 (not) to 1 (wholly)")
        ->type_name("X")
        ->check(between(0, 1));
    app.add_option("--details", request.details, "bring out fine detail, 0 (not) to 1 (strongly)")
        ->type_name("X")
        ->check(between(0, 1));
}

void bindFileOptions(Options& app, HdrOptions& options)
{
    auto& request = options.request;
    app.add_option("FILES", options.files, "JPEG, PNG, TIFF, WebP, EXR, HEIC, AVIF or camera raw")
        ->type_name("")
        ->required();
    app.add_option("-o,--output", options.output, "the result: .jpg, .png, .tif or .exr")
        ->type_name("FILE")
        ->required();
    app.add_option("--quality", request.jpegQuality, "quality of a JPEG, 1 to 100; else 95")
        ->type_name("N")
        ->check(between(1, 100));
    app.add_option("--bits", request.bits, "bits of a sample: PNG and TIFF 8 or 16, JPEG 8, EXR 16 or 32")
        ->type_name("N")
        ->check(between(8, 32));
}

void bindRunOptions(Options& app, HdrOptions& options)
{
    constexpr int kMostThreads = 1024; // more than any machine has cores
    app.add_option("--threads", options.request.threads, "use at most N processor cores")
        ->type_name("N")
        ->check(between(1, kMostThreads));
    app.add_flag("--quiet", options.quiet, "print nothing but errors");
    app.add_flag("--json", options.json, "print the result as JSON, for scripts");
    app.add_option("--log", options.log, "append what is done to FILE, or to log_orvo.txt in a folder")
        ->type_name("FILE");
}

void completeRequest(HdrOptions& options)
{
    auto& request = options.request;
    request.frames.assign(options.files.begin(), options.files.end());
    request.output = options.output;
    if (options.deghost)
        request.deghost = static_cast<DeghostAmount>(*options.deghost);
    if (options.ghostReference)
        request.ghostReference = static_cast<std::size_t>(*options.ghostReference - 1); // people count from 1
}

/// Log lines are appended to a file, whatever it is: it must not be one of the pictures.
bool logIsAPicture(const HdrOptions& options)
{
    const std::filesystem::path log = options.log;
    std::error_code missing; // a file that is not there is no other file
    const auto isLog = [&](const std::filesystem::path& file) {
        return file.lexically_normal() == log.lexically_normal() || std::filesystem::equivalent(file, log, missing);
    };
    return isLog(options.request.output) ||
           std::any_of(options.request.frames.begin(), options.request.frames.end(), isLog);
}

double totalMilliseconds(const jobs::HdrJobResult& result)
{
    double total = 0.0;
    for (const auto& step : result.steps)
        total += step.milliseconds;
    return total;
}

std::string asJson(const jobs::HdrJobResult& result)
{
    nlohmann::ordered_json json;
    json["output"] = result.output.string();
    json["size"] = {{"width", result.size.width}, {"height", result.size.height}};
    json["bits"] = result.bits;
    json["profile"] = result.profile;
    json["frames"] = nlohmann::ordered_json::array();
    for (const auto& frame : result.frames)
        json["frames"].push_back({{"path", frame.path.string()}, {"number", frame.number}, {"ev", frame.ev}});
    json["phases"] = nlohmann::ordered_json::array();
    for (const auto& step : result.steps)
        json["phases"].push_back({{"name", jobs::stepName(step.step)}, {"milliseconds", step.milliseconds}});
    json["milliseconds"] = totalMilliseconds(result);
    json["peak_memory_bytes"] = {{"process", result.peak.process}, {"planes", result.peak.planes}};
    json["warnings"] = result.warnings;
    return jsonText(json);
}

std::string asSentence(const jobs::HdrJobResult& result)
{
    char numbers[160];
    constexpr double kMillisecondsPerSecond = 1000.0;
    std::snprintf(numbers, sizeof numbers, ": %d x %d pixels from %zu frame%s in %.1f s\n", result.size.width,
                  result.size.height, result.frames.size(), result.frames.size() == 1 ? "" : "s",
                  totalMilliseconds(result) / kMillisecondsPerSecond);
    return printable(result.output.string()) + numbers;
}

jobs::HdrJobResult runJob(const HdrOptions& options)
{
    const Talk talk = options.quiet ? Talk::Silent : options.json ? Talk::BarOnly : Talk::Full;
    ProgressBar bar(talk);
    const InterruptGuard interrupt(bar.isBar());
    const SilentStandardError silence;
    return jobs::hdrJob(options.request, {bar.follower(), interrupt.cancelFlag()});
}

} // namespace

int runHdr(int argc, char** argv)
{
    Options app("hdr", kAbout);
    HdrOptions options;
    bindFileOptions(app, options);
    bindMergeOptions(app, options);
    bindRunOptions(app, options);
    app.footer(kExamples);
    if (const auto exitCode = app.read(argc, argv))
        return *exitCode;
    completeRequest(options);
    if (!options.log.empty()) {
        if (logIsAPicture(options)) {
            complain(options.log + ": the log would be written into a picture");
            hintAtHelp("hdr");
            return kWrongUsage;
        }
        setLogFile(options.log);
    }

    LOG(__orvolog() << "orvo " ORVO_VERSION " hdr: " << options.files.size() << " frames to " << options.output);
    const jobs::HdrJobResult result = runJob(options);
    LOG(__orvolog() << "orvo hdr: " << (result.done() ? "done" : result.message));
    if (!result.done())
        return tellOutcome(result, "hdr");
    if (!options.quiet)
        for (const std::string& warning : result.warnings)
            complain("note: " + warning);
    if (options.json)
        say(asJson(result));
    else if (!options.quiet)
        say(asSentence(result));
    return kDone;
}

} // namespace orvo::cli
