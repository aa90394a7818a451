/// orvo stack: merges a focus series.
#include "batch_command.hpp"
#include "picture_command.hpp"

#include <jobs/default_output.hpp>
#include <jobs/stack_job.hpp>
#include <orvo_common/wide_path.hpp>

#include <string>
#include <vector>

namespace orvo::cli {
namespace {

constexpr const char* kAbout =
    "Merges a focus series (the same view taken several times, each focused nearer or farther)\n"
    "into one picture that is sharp throughout.\n"
    "Pass the files in the order of their focus. The frames are aligned, since focusing changes\n"
    "the scale slightly.\n";
constexpr const char* kWhatWasDone = jobs::kDoneStacked;
constexpr const char* kExamples = "Examples:\n"
                                  "  A flower, focused from its front to its back:\n"
                                  "    orvo stack IMG_01.jpg IMG_02.jpg IMG_03.jpg -o flower.jpg\n"
                                  "  A rail and a lens that does not breathe; no alignment needed:\n"
                                  "    orvo stack *.tif -o coin.tif --no-align\n"
                                  "  Every focus series of a memory card, several at once:\n"
                                  "    orvo stack --batch /media/card/DCIM/100CANON -o stacked\n"
                                  "  Moving leaves, kept as in the fourth file:\n"
                                  "    orvo stack *.dng -o forest.tif --deghost medium --reference 4\n";

struct StackOptions
{
    std::vector<std::string> files;
    OutputOptions output;
    bool noAlign = false;
    std::optional<int> reference;
    std::string deghost;
    jobs::StackJobRequest request; ///< without files
    BatchOptions batch;
    RunOptions run;
};

void bindStackOptions(Options& app, StackOptions& options)
{
    auto& request = options.request;
    app.add_flag("--no-align", options.noAlign, "do not align the frames");
    app.add_flag("--fast", request.fast, "align faster; fine detail becomes softer");
    bindFrameNumber(app, "--reference", options.reference,
                    "align to the Nth of the FILES, from 1 (default: the middle one)");
    bindStrict(app, request, "fail if a frame cannot be aligned, instead of stacking it unaligned");
    bindDeghost(app, options.deghost);
    bindCorrections(app, request.chromaticAberrations, request.lensCorrection);
}

jobs::StackJobRequest requestFor(const StackOptions& options, const std::vector<std::filesystem::path>& frames)
{
    jobs::StackJobRequest request = options.request;
    request.frames = frames;
    request.align = !options.noAlign;
    request.deghost = deghostAmount(options.deghost);
    request.reference = frameIndex(options.reference);
    return request;
}

int runBatch(const StackOptions& options)
{
    BatchCommand command = batchCommandOf("stack", options, kWhatWasDone, options.request.threads);
    command.kinds = {PictureGroupKind::FocusSeries};
    command.task = [&](const BatchFiles& job, const std::filesystem::path& output) {
        return batchTaskOf(requestFor(options, job.files), job.files, output, jobs::stackJob);
    };
    return runBatchCommand(command);
}

nlohmann::ordered_json asJson(const jobs::StackJobResult& result)
{
    nlohmann::ordered_json json = writtenAsJson(result);
    json["frames"] = nlohmann::ordered_json::array();
    for (std::size_t i = 0; i < result.frames.size(); ++i)
        json["frames"].push_back({{"path", pathText(result.frames[i])}, {"number", i + 1}});
    json["reference"] = result.reference + 1;
    return json;
}

} // namespace

int runStack(int argc, char** argv)
{
    Options app("stack", kAbout);
    StackOptions options;
    bindFiles(app, options.files);
    bindOutput(app, options.output, kWhatWasDone);
    bindFormat(app, options.request);
    bindStackOptions(app, options);
    bindBatch(app, options.batch, "focus series");
    bindRun(app, options.request, options.run);
    app.footer(std::string(kExamples) + kExitCodes);
    if (const auto exitCode = app.read(argc, argv))
        return *exitCode;
    if (options.batch.isGiven())
        return runBatch(options);
    int exitCode = kFailed;
    const auto frames = readInput("stack", options.files, options.output.file, options.run.quiet, exitCode);
    if (!frames)
        return exitCode;
    jobs::StackJobRequest request = requestFor(options, *frames);
    request.output = outputPath(options.output, frames->front(), kWhatWasDone, request);

    jobs::StackJobResult result;
    return runPictureCommand(
        {.name = "stack",
         .run = options.run,
         .inputs = request.frames,
         .output = request.output,
         .job = [&](const jobs::JobCallbacks& callbacks) { result = jobs::stackJob(request, callbacks); },
         .report = result,
         .json = [&] { return asJson(result); },
         .sentence = [&] { return writtenAsText(result) + " from " + counted(result.frames.size(), "frame"); }});
}

} // namespace orvo::cli
