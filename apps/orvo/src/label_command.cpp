/// orvo label: writes copies of frames with their numbers.
#include "picture_command.hpp"

#include <jobs/label_job.hpp>
#include <orvo_common/wide_path.hpp>

#include <string>
#include <vector>

namespace orvo::cli {
namespace {

constexpr const char* kAbout =
    "Writes a copy of each frame of a series with a line of text in the picture that gives its\n"
    "number: 'align result, image 2 out of 7', to identify frames when viewing or sharing them.\n"
    "Does not align or correct anything; raw files are not developed. The pictures are named\n"
    "after the files.\n";
constexpr const char* kExamples = "Examples:\n"
                                  "  See which frame of a focus series has which number:\n"
                                  "    orvo label IMG_*.jpg -o labelled\n"
                                  "  The same without compression loss:\n"
                                  "    orvo label IMG_*.tif -o labelled --format tiff\n";

const std::vector<std::pair<std::string, ImageFileFormat>> kFormats = {{"jpeg", ImageFileFormat::Jpeg},
                                                                       {"png", ImageFileFormat::Png},
                                                                       {"tiff", ImageFileFormat::Tiff},
                                                                       {"exr", ImageFileFormat::Exr}};

struct LabelOptions
{
    std::vector<std::string> files;
    std::string folder;
    std::string format = kFormats.front().first;
    jobs::LabelJobRequest request;
    RunOptions run;
};

void bindLabelOptions(Options& app, LabelOptions& options)
{
    app.add_option("-o,--output", options.folder, "folder for the pictures; created if missing")
        ->type_name("DIR")
        ->required();
    app.add_option("--format", options.format, "jpeg, png, tiff or exr (default: jpeg)")
        ->type_name("X")
        ->check(oneOf(kFormats));
}

void completeRequest(LabelOptions& options, std::vector<std::filesystem::path> frames)
{
    auto& request = options.request;
    request.frames = std::move(frames);
    request.folder = options.folder;
    for (const auto& [name, format] : kFormats)
        if (name == options.format)
            request.format = format;
}

nlohmann::ordered_json asJson(const jobs::LabelJobResult& result)
{
    nlohmann::ordered_json json;
    json["output"] = pathText(result.folder);
    json["frames"] = nlohmann::ordered_json::array();
    for (std::size_t i = 0; i < result.frames.size(); ++i) {
        nlohmann::ordered_json frame = {{"path", pathText(result.frames[i].source)}, {"number", i + 1}};
        frame.update(writtenAsJson(result.frames[i].written));
        json["frames"].push_back(frame);
    }
    return json;
}

std::string asText(const jobs::LabelJobResult& result)
{
    std::string text;
    for (const auto& frame : result.frames)
        text += writtenAsText(frame.written) + "\n";
    return text + counted(result.frames.size(), "frame");
}

} // namespace

int runLabel(int argc, char** argv)
{
    Options app("label", kAbout);
    LabelOptions options;
    bindFiles(app, options.files);
    bindLabelOptions(app, options);
    bindFormat(app, options.request);
    bindRun(app, options.request, options.run);
    app.footer(std::string(kExamples) + kExitCodes);
    if (const auto exitCode = app.read(argc, argv))
        return *exitCode;
    int exitCode = kFailed;
    auto frames = readInput("label", options.files, {}, options.run.quiet, exitCode);
    if (!frames)
        return exitCode;
    completeRequest(options, std::move(*frames));

    jobs::LabelJobResult result;
    return runPictureCommand(
        {.name = "label",
         .run = options.run,
         .inputs = options.request.frames,
         .output = options.request.folder,
         .job = [&](const jobs::JobCallbacks& callbacks) { result = jobs::labelJob(options.request, callbacks); },
         .report = result,
         .json = [&] { return asJson(result); },
         .sentence = [&] { return asText(result); }});
}

} // namespace orvo::cli
