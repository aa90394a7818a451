/// orvo frames: lists the frames of a bracket by exposure, and the groups of a memory card.
#include "group_text.hpp"
#include "job_watch.hpp"
#include "json_text.hpp"
#include "options.hpp"
#include "picture_command.hpp"

#include <jobs/frames_job.hpp>
#include <jobs/groups_job.hpp>
#include <orvo_common/wide_path.hpp>

#include <cstdio>
#include <vector>

namespace orvo::cli {
namespace {

constexpr const char* kAbout =
    "Lists the frames of a bracket from the darkest to the brightest, with their exposure\n"
    "relative to the middle frame in EV (stops). Reads only metadata and thumbnails.\n"
    "The number before each file is its position among the given files, from 1: the\n"
    "number that 'orvo hdr --ghost-reference' takes.\n"
    "\n"
    "With --group sorts the pictures of a memory card into brackets, focus series, panoramas,\n"
    "panoramas of brackets and single pictures, and shows why.\n";
constexpr const char* kExamples = "Examples:\n"
                                  "  orvo frames IMG_*.jpg\n"
                                  "  orvo frames --json *.dng\n"
                                  "  orvo frames --group /media/card/DCIM/100CANON\n";

nlohmann::ordered_json unreadableAsJson(const std::vector<jobs::UnreadableFile>& unreadable)
{
    auto json = nlohmann::ordered_json::array();
    for (const auto& file : unreadable)
        json.push_back({{"path", pathText(file.path)}, {"reason", file.reason}});
    return json;
}

std::string asJson(const jobs::FramesJobResult& result)
{
    nlohmann::ordered_json json;
    json["frames"] = nlohmann::ordered_json::array();
    for (const auto& frame : result.frames)
        json["frames"].push_back({{"path", pathText(frame.path)}, {"number", frame.number}, {"ev", frame.ev}});
    json["unreadable"] = unreadableAsJson(result.unreadable);
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

int listGroups(const std::vector<std::filesystem::path>& given, bool json)
{
    jobs::GroupsJobResult result;
    {
        JobWatch watch(Talk::BarOnly);
        result = jobs::groupsJob(given, watch.callbacks());
    }
    const bool isListed = result.done() || !result.unreadable.empty();
    if (!isListed)
        return reportOutcome(result, "frames");
    for (const std::string& note : jobs::leftOutNotes(result.leftOut))
        complain("note: " + note);
    if (json) {
        nlohmann::ordered_json all;
        all["groups"] = nlohmann::ordered_json::array();
        for (const PictureGroup& group : result.groups)
            all["groups"].push_back(groupAsJson(group));
        all["left_out"] = leftOutAsJson(result.leftOut);
        all["unreadable"] = unreadableAsJson(result.unreadable);
        say(jsonText(all));
    } else {
        for (const PictureGroup& group : result.groups)
            say(groupLine(group));
    }
    for (const auto& file : result.unreadable)
        complain(file.reason);
    return result.done() ? kDone : kFailed;
}

} // namespace

int runFrames(int argc, char** argv)
{
    Options options("frames", kAbout);
    std::vector<std::string> files;
    bool json = false;
    bool group = false;
    options.add_option("FILES", files, "picture files of one bracket, in any order, or folders of them")
        ->type_name("")
        ->required();
    options.add_flag("--group", group, "sort the pictures of a memory card into groups");
    options.add_flag("--json", json, "print the list as JSON, for scripts");
    options.footer(kExamples);
    if (const auto exitCode = options.read(argc, argv))
        return *exitCode;

    if (group)
        return listGroups({files.begin(), files.end()}, json);
    int exitCode = kFailed;
    const auto input = readInput("frames", files, {}, false, exitCode);
    if (!input)
        return exitCode;
    jobs::FramesJobResult result;
    {
        const SilentStandardError silence;
        result = jobs::framesJob(*input);
    }
    if (result.outcome == jobs::JobOutcome::Refused)
        return reportOutcome(result, "frames");
    say(json ? asJson(result) : asTable(result));
    for (const auto& file : result.unreadable)
        complain(file.reason);
    return result.done() ? kDone : kFailed;
}

} // namespace orvo::cli
