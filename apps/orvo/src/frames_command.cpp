/// orvo frames: lists the frames of a bracket by exposure.
#include "json_text.hpp"
#include "options.hpp"

#include <jobs/frames_job.hpp>
#include <orvo_common/wide_path.hpp>

#include <cstdio>
#include <vector>

namespace orvo::cli {
namespace {

constexpr const char* kAbout = "Lists the frames of a bracket from the darkest to the brightest, with their exposure\n"
                               "relative to the middle frame in EV (stops). Reads only metadata and thumbnails.\n"
                               "The number before each file is its position among the given files, from 1: the\n"
                               "number that 'orvo hdr --ghost-reference' takes.\n";
constexpr const char* kExamples = "Examples:\n"
                                  "  orvo frames IMG_*.jpg\n"
                                  "  orvo frames --json *.dng\n";

std::string asJson(const jobs::FramesJobResult& result)
{
    nlohmann::ordered_json json;
    json["frames"] = nlohmann::ordered_json::array();
    for (const auto& frame : result.frames)
        json["frames"].push_back({{"path", pathText(frame.path)}, {"number", frame.number}, {"ev", frame.ev}});
    json["unreadable"] = nlohmann::ordered_json::array();
    for (const auto& file : result.unreadable)
        json["unreadable"].push_back({{"path", pathText(file.path)}, {"reason", file.reason}});
    return jsonText(json);
}

std::string asTable(const jobs::FramesJobResult& result)
{
    std::string text;
    for (const auto& frame : result.frames) {
        char line[64];
        std::snprintf(line, sizeof line, "%+7.2f EV  %3zu  ", static_cast<double>(frame.ev), frame.number);
        text += line + printable(pathText(frame.path)) + "\n";
    }
    return text;
}

} // namespace

int runFrames(int argc, char** argv)
{
    Options options("frames", kAbout);
    std::vector<std::string> files;
    bool json = false;
    options.add_option("FILES", files, "picture files of one bracket, in any order")->type_name("")->required();
    options.add_flag("--json", json, "print the list as JSON, for scripts");
    options.footer(kExamples);
    if (const auto exitCode = options.read(argc, argv))
        return *exitCode;

    jobs::FramesJobResult result;
    {
        const SilentStandardError silence;
        result = jobs::framesJob({files.begin(), files.end()});
    }
    if (result.outcome == jobs::JobOutcome::Refused)
        return reportOutcome(result, "frames");
    say(json ? asJson(result) : asTable(result));
    for (const auto& file : result.unreadable)
        complain(file.reason);
    return result.done() ? kDone : kFailed;
}

} // namespace orvo::cli
