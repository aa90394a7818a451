/// orvo fill: fills the area that a mask marks.
#include "picture_command.hpp"

#include <jobs/default_output.hpp>
#include <jobs/fill_job.hpp>
#include <orvo_common/wide_path.hpp>

#include <string>

namespace orvo::cli {
namespace {

constexpr const char* kAbout =
    "Fills the area that a mask marks from its surroundings, at full resolution. All other pixels\n"
    "keep their values. The mask is a picture that is white in the area to fill and black elsewhere;\n"
    "it is stretched over the whole picture, so its size does not matter. To mark by boxes or brush\n"
    "strokes, and for a soft edge, use 'orvo erase'.\n";
constexpr const char* kWhatWasDone = jobs::kDoneFilled;
constexpr const char* kExamples = "Examples:\n"
                                  "  Remove the area that is white in mask.png:\n"
                                  "    orvo fill beach.jpg --mask mask.png -o empty-beach.jpg\n"
                                  "  With a network:\n"
                                  "    orvo fill beach.png --mask mask.png -o empty-beach.png --model inpaint.onnx\n";

nlohmann::ordered_json asJson(const jobs::FillJobResult& result, const std::string& model)
{
    nlohmann::ordered_json json = writtenAsJson(result);
    json["input"] = {{"path", pathText(result.source)}};
    json["mask"] = {{"path", pathText(result.mask)}};
    if (!model.empty())
        json["model"] = {{"path", model}};
    return json;
}

} // namespace

int runFill(int argc, char** argv)
{
    Options app("fill", kAbout);
    RunOptions run;
    jobs::FillJobRequest request;
    std::string file;
    std::string mask;
    std::string model;
    OutputOptions output;
    app.add_option("FILE", file, kReadable)->type_name("")->required();
    app.add_option("--mask", mask, "a picture that is white in the area to fill")->type_name("FILE")->required();
    bindOutput(app, output, kWhatWasDone);
    bindFormat(app, request);
    app.add_option("--model", model, "ONNX inpainting network to use instead of the built-in method")
        ->type_name("FILE");
    bindRun(app, request, run);
    app.footer(std::string(kExamples) + kExitCodes);
    if (const auto exitCode = app.read(argc, argv))
        return *exitCode;
    if (const auto exitCode = refuseFolder("fill", file))
        return *exitCode;
    request.source = file;
    request.mask = mask;
    request.model = model;
    request.output = outputPath(output, request.source, kWhatWasDone, request);

    jobs::FillJobResult result;
    PictureCommand command{
        .name = "fill",
        .run = run,
        .inputs = {request.source, request.mask},
        .output = request.output,
        .job = [&](const jobs::JobCallbacks& callbacks) { result = jobs::fillJob(request, callbacks); },
        .report = result,
        .json = [&] { return asJson(result, model); },
        .sentence = [&] { return writtenAsText(result); }};
    if (!model.empty())
        command.inputs.push_back(request.model); // the log must not be written into it either
    return runPictureCommand(command);
}

} // namespace orvo::cli
