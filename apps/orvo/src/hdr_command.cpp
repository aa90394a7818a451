/// orvo hdr: merges an exposure bracket.
#include "batch_command.hpp"
#include "picture_command.hpp"

#include <jobs/default_output.hpp>
#include <jobs/hdr_job.hpp>
#include <jobs/radiance_job.hpp>
#include <orvo_common/wide_path.hpp>

#include <algorithm>
#include <cmath>
#include <string>
#include <vector>

namespace orvo::cli {
namespace {

constexpr const char* kAbout = "Merges an exposure bracket (the same view taken several times, from dark to bright)\n"
                               "into one picture with detail in shadows and highlights.\n"
                               "The frames may be in any order. A single frame is enhanced.\n";
constexpr const char* kWhatWasDone = jobs::kDoneMerged;
constexpr const char* kExamples =
    "Examples:\n"
    "  Three frames from a tripod:\n"
    "    orvo hdr dark.jpg middle.jpg bright.jpg -o merged.jpg\n"
    "  Handheld raw frames; moving people are kept as in the second file:\n"
    "    orvo hdr a.dng b.dng c.dng -o merged.tif --align --deghost medium --ghost-reference 2\n"
    "  Every bracket of a memory card, several at once:\n"
    "    orvo hdr --batch /media/card/DCIM/100CANON -o merged --align\n"
    "  Linear radiance, for rendering or measuring:\n"
    "    orvo hdr room-*.dng --radiance room.exr\n"
    "  A file whose name begins with a dash:\n"
    "    orvo hdr -o merged.jpg -- -1.jpg -2.jpg -3.jpg\n";

struct HdrOptions
{
    std::vector<std::string> files;
    OutputOptions output;
    std::string deghost;
    std::optional<int> ghostReference;
    std::string radiance;
    std::string evs;
    jobs::HdrJobRequest request; ///< without files
    BatchOptions batch;
    RunOptions run;
};

/// "-2,0,2" as numbers; empty if it is not that.
std::vector<float> numbersIn(const std::string& text)
{
    std::vector<float> numbers;
    for (std::size_t begin = 0; begin <= text.size();) {
        const std::size_t end = std::min(text.find(',', begin), text.size());
        float number = 0.0f;
        if (!CLI::detail::lexical_cast(text.substr(begin, end - begin), number) || !std::isfinite(number))
            return {};
        numbers.push_back(number);
        begin = end + 1;
    }
    return numbers;
}

/// Options of the picture for viewing, which radiance does not have.
constexpr const char* kNotOfRadiance[] = {"--output",          "--force",     "--quality", "--deghost",
                                          "--ghost-reference", "--chromatic", "--lens",    "--details",
                                          "--white-balance",   "--batch",     "--memory"};

void bindRadiance(Options& app, HdrOptions& options)
{
    auto* const radiance = app.add_option("--radiance", options.radiance,
                                          "write linear radiance to FILE, an .exr, for rendering and measuring,\n"
                                          "instead of a picture for viewing")
                               ->type_name("FILE");
    app.add_option("--evs", options.evs,
                   "with --radiance: exposures of the FILES in EV, such as -2,0,2,\n"
                   "for files without exposure data")
        ->type_name("X,X,...")
        ->needs(radiance)
        ->check(CLI::Validator(
            [](std::string& text) {
                return numbersIn(text).empty() ? "expected numbers with commas between, found " + text : std::string();
            },
            ""));
}

void bindMergeOptions(Options& app, HdrOptions& options)
{
    auto& request = options.request;
    app.add_flag("--align", request.align, "align frames that were taken by hand");
    app.add_flag("--fast", request.fast, "with --align: faster, but only to whole pixels");
    bindStrict(app, request, "fail if a frame cannot be aligned, instead of merging it unaligned");
    bindDeghost(app, options.deghost);
    bindFrameNumber(app, "--ghost-reference", options.ghostReference,
                    "with --deghost: keep moving subjects as in the Nth of the FILES, from 1");
    bindCorrections(app, request.chromaticAberrations, request.lensCorrection);
    app.add_option("--white-balance", request.whiteBalance, "remove a colour cast, 0 (off) to 1 (full) (default: 0)")
        ->type_name("X")
        ->check(between(0.0, 1.0));
    app.add_option("--details", request.details, "enhance fine detail, 0 (off) to 1 (most) (default: 0)")
        ->type_name("X")
        ->check(between(0.0, 1.0));
}

jobs::HdrJobRequest requestFor(const HdrOptions& options, const std::vector<std::filesystem::path>& frames)
{
    jobs::HdrJobRequest request = options.request;
    request.frames = frames;
    request.deghost = deghostAmount(options.deghost);
    request.ghostReference = frameIndex(options.ghostReference);
    return request;
}

int runBatch(const HdrOptions& options)
{
    BatchCommand command = batchCommandOf("hdr", options, kWhatWasDone, options.request.threads);
    command.kinds = {PictureGroupKind::Bracket};
    command.task = [&](const BatchFiles& job, const std::filesystem::path& output) {
        return batchTaskOf(requestFor(options, job.files), job.files, output, jobs::hdrJob);
    };
    return runBatchCommand(command);
}

nlohmann::ordered_json asJson(const jobs::RadianceJobResult& result)
{
    nlohmann::ordered_json json = writtenAsJson(result);
    json["white_luminance"] = result.whiteLuminance;
    json["clipped_share"] = result.clipped;
    json["frames"] = nlohmann::ordered_json::array();
    for (std::size_t i = 0; i < result.evs.size(); ++i)
        json["frames"].push_back({{"path", pathText(result.frames[i])}, {"number", i + 1}, {"ev", result.evs[i]}});
    return json;
}

int runRadiance(const HdrOptions& options, const std::vector<std::filesystem::path>& frames)
{
    jobs::RadianceJobRequest request;
    static_cast<jobs::PictureJobRequest&>(request) = options.request;
    request.frames = frames;
    request.output = options.radiance;
    request.align = options.request.align;
    request.fast = options.request.fast;
    request.evs = numbersIn(options.evs);
    jobs::RadianceJobResult result;
    return runPictureCommand(
        {.name = "hdr",
         .run = options.run,
         .inputs = request.frames,
         .output = request.output,
         .job = [&](const jobs::JobCallbacks& callbacks) { result = jobs::radianceJob(request, callbacks); },
         .report = result,
         .json = [&] { return asJson(result); },
         .sentence = [&] { return writtenAsText(result) + " from " + counted(result.frames.size(), "frame"); }});
}

nlohmann::ordered_json asJson(const jobs::HdrJobResult& result)
{
    nlohmann::ordered_json json = writtenAsJson(result);
    json["frames"] = nlohmann::ordered_json::array();
    for (const auto& frame : result.frames)
        json["frames"].push_back({{"path", pathText(frame.path)}, {"number", frame.number}, {"ev", frame.ev}});
    return json;
}

} // namespace

int runHdr(int argc, char** argv)
{
    Options app("hdr", kAbout);
    HdrOptions options;
    bindFiles(app, options.files);
    bindOutput(app, options.output, kWhatWasDone);
    bindFormat(app, options.request);
    bindMergeOptions(app, options);
    bindBatch(app, options.batch, "bracket");
    bindRadiance(app, options);
    bindRun(app, options.request, options.run);
    app.footer(std::string(kExamples) + kExitCodes);
    if (const auto exitCode = app.read(argc, argv))
        return *exitCode;
    const bool radiance = !options.radiance.empty();
    for (const char* const name : kNotOfRadiance)
        if (radiance && app.get_option(name)->count() > 0) {
            complain(std::string(name) + " has no meaning with --radiance");
            hintAtHelp("hdr");
            return kWrongUsage;
        }
    if (options.batch.isGiven())
        return runBatch(options);
    int exitCode = kFailed;
    const auto frames =
        readInput("hdr", options.files, radiance ? options.radiance : options.output.file, options.run.quiet, exitCode);
    if (!frames)
        return exitCode;
    if (radiance)
        return runRadiance(options, *frames);
    jobs::HdrJobRequest request = requestFor(options, *frames);
    request.output = outputPath(options.output, frames->front(), kWhatWasDone, request);

    jobs::HdrJobResult result;
    return runPictureCommand(
        {.name = "hdr",
         .run = options.run,
         .inputs = request.frames,
         .output = request.output,
         .job = [&](const jobs::JobCallbacks& callbacks) { result = jobs::hdrJob(request, callbacks); },
         .report = result,
         .json = [&] { return asJson(result); },
         .sentence = [&] { return writtenAsText(result) + " from " + counted(result.frames.size(), "frame"); }});
}

} // namespace orvo::cli
