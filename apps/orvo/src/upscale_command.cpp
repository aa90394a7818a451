/// orvo upscale: enlarges a picture.
#include "batch_command.hpp"
#include "picture_command.hpp"

#include <jobs/default_output.hpp>
#include <jobs/upscale_job.hpp>
#include <jobs/upscale_network.hpp>
#include <orvo_common/wide_path.hpp>

#include <string>
#include <vector>

namespace orvo::cli {
namespace {

constexpr const char* kAbout =
    "Enlarges a picture to twice its width and height, or up to 16 times, with sharper edges and\n"
    "finer detail than plain resizing: for a large print of an old file, or after a tight crop.\n"
    "Faces are detected and sharpened. An ONNX network can replace the built-in filters.\n"
    "Several pictures, or those of a folder, are enlarged one by one.\n";
constexpr const char* kWhatWasDone = jobs::kDoneLarge;
constexpr const char* kExamples = "Examples:\n"
                                  "  Twice the size, for a print:\n"
                                  "    orvo upscale portrait.jpg -o portrait-large.tif\n"
                                  "  Four times, for a small and noisy picture from an old phone:\n"
                                  "    orvo upscale phone.jpg -o phone-large.jpg --passes 2 --denoise 2\n"
                                  "  Every picture of a folder:\n"
                                  "    orvo upscale scans\n"
                                  "  With a network:\n"
                                  "    orvo upscale bird.png -o bird-large.png --model esr.onnx\n";

struct UpscaleOptions
{
    std::vector<std::string> files;
    OutputOptions output;
    std::string model;
    bool noFaces = false;
    jobs::UpscaleJobRequest request; ///< without the file
    BatchOptions batch;
    RunOptions run;
};

void bindUpscaleOptions(Options& app, UpscaleOptions& options)
{
    auto& request = options.request;
    app.add_option("--passes", request.passes,
                   "number of doublings, 1 to 4: each side grows 2 to 16 times (default: 1)")
        ->type_name("N")
        ->check(between(1, kMostUpscalePasses));
    app.add_option("--denoise", request.denoise, "smooth noise before enlarging, 0 (off) to 3 (most) (default: 0)")
        ->type_name("N")
        ->check(between(0, 3));
    app.add_flag("--crisp", request.crisp, "sharpen soft edges");
    app.add_flag("--no-faces", options.noFaces, "do not sharpen faces");
    app.add_option("--model", options.model, "ONNX super-resolution network to use instead of the filters")
        ->type_name("FILE");
}

nlohmann::ordered_json asJson(const jobs::UpscaleJobResult& result)
{
    nlohmann::ordered_json json = writtenAsJson(result);
    json["input"] = {{"path", pathText(result.source)}, {"size", sizeAsJson(result.sourceSize)}};
    return json;
}

std::string asText(const jobs::UpscaleJobResult& result)
{
    return writtenAsText(result) + " from " + std::to_string(result.sourceSize.width) + " x " +
           std::to_string(result.sourceSize.height);
}

} // namespace

int runUpscale(int argc, char** argv)
{
    Options app("upscale", kAbout);
    UpscaleOptions options;
    auto& request = options.request;
    bindFiles(app, options.files);
    bindOutput(app, options.output, kWhatWasDone);
    bindFormat(app, request);
    bindUpscaleOptions(app, options);
    bindEachPicture(app, options.batch);
    bindRun(app, request, options.run);
    app.footer(std::string(kExamples) + kExitCodes);
    if (const auto exitCode = app.read(argc, argv))
        return *exitCode;
    request.model = options.model;
    request.faces = !options.noFaces;
    if (isEachPicture(options.files, options.batch)) {
        const jobs::UpscaleNetwork network(request.model);
        return runEachPicture(batchCommandOf("upscale", options, kWhatWasDone, options.request.threads), request,
                              jobs::upscaleJob);
    }
    const auto file = onlyFile("upscale", options.files, options.batch);
    if (!file)
        return kWrongUsage;
    request.source = *file;
    request.output = outputPath(options.output, request.source, kWhatWasDone, request);

    jobs::UpscaleJobResult result;
    PictureCommand command{
        .name = "upscale",
        .run = options.run,
        .inputs = {request.source},
        .output = request.output,
        .job = [&](const jobs::JobCallbacks& callbacks) { result = jobs::upscaleJob(request, callbacks); },
        .report = result,
        .json = [&] { return asJson(result); },
        .sentence = [&] { return asText(result); }};
    if (!request.model.empty())
        command.inputs.push_back(request.model); // the log must not be written into it either
    return runPictureCommand(command);
}

} // namespace orvo::cli
