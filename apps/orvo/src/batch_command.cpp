#include "batch_command.hpp"

#include "group_text.hpp"
#include "job_watch.hpp"

#include <jobs/default_output.hpp>
#include <jobs/groups_job.hpp>
#include <jobs/input_files.hpp>
#include <jobs/list_file.hpp>
#include <orvo_common/wide_path.hpp>
#include <orvo_io/picture_file.hpp>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdio>
#include <map>
#include <optional>
#include <system_error>
#include <utility>

namespace orvo::cli {
namespace {

namespace fs = std::filesystem;

/// "8G", "500M", "0.5G"; a number without a unit is in bytes. Empty if it is none of these, or nothing.
std::optional<std::uint64_t> bytesOf(const std::string& text)
{
    constexpr std::array<std::pair<char, int>, 4> kUnits = {{{'K', 10}, {'M', 20}, {'G', 30}, {'T', 40}}};
    double number = 0.0;
    const char* const end = text.data() + text.size();
    const auto read = std::from_chars(text.data(), end, number);
    if (read.ec != std::errc())
        return std::nullopt;
    int shift = 0;
    const char* rest = read.ptr;
    if (rest != end) {
        const auto* const unit =
            std::find_if(kUnits.begin(), kUnits.end(), [&](const auto& each) { return each.first == *rest; });
        if (unit == kUnits.end())
            return std::nullopt;
        shift = unit->second;
        ++rest;
    }
    constexpr double kMost = 1e15; // bytes; more than any machine has
    const double bytes = number * static_cast<double>(std::uint64_t{1} << shift);
    if (rest != end || !(bytes >= 1.0) || bytes > kMost)
        return std::nullopt;
    return static_cast<std::uint64_t>(bytes);
}

CLI::Validator memoryText()
{
    return CLI::Validator(
        [](std::string& text) -> std::string {
            return bytesOf(text) ? std::string() : "expected a number of bytes such as 8G or 500M, found " + text;
        },
        "");
}

/// The list, if the value of --batch is one: neither a folder nor a picture.
std::optional<fs::path> listOf(const BatchOptions& options)
{
    std::error_code error;
    const fs::path path = options.value;
    if (path.empty() || fs::is_directory(path, error) || beginsLikePicture(path))
        return std::nullopt;
    return path;
}

struct Plan
{
    std::vector<BatchFiles> jobs;
    std::vector<std::string> notes;
    std::vector<std::string> failures; ///< files that cannot be read
};

void addEach(Plan& plan, const std::vector<fs::path>& files)
{
    for (const fs::path& file : files)
        plan.jobs.push_back({{file}, 0});
}

Plan planOfList(const BatchCommand& command, const fs::path& list)
{
    Plan plan;
    for (const jobs::ListLine& line : jobs::readListFile(list)) {
        const jobs::InputFiles input = jobs::inputFiles(line.files);
        if (command.kinds.empty())
            addEach(plan, input.files);
        else
            plan.jobs.push_back({input.files, 0});
        for (const std::string& note : jobs::leftOutNotes(input.leftOut))
            plan.notes.push_back(note);
    }
    return plan;
}

Plan planOfPictures(const std::vector<fs::path>& given)
{
    Plan plan;
    const jobs::InputFiles input = jobs::cardFiles(given);
    plan.notes = jobs::leftOutNotes(input.leftOut);
    addEach(plan, input.files);
    return plan;
}

/// One line that counts the groups of other kinds; empty if there are none.
std::string otherGroups(const std::vector<PictureGroup>& groups, const std::vector<PictureGroupKind>& kinds)
{
    std::map<PictureGroupKind, std::size_t> counts;
    for (const PictureGroup& group : groups)
        if (std::find(kinds.begin(), kinds.end(), group.kind) == kinds.end())
            ++counts[group.kind];
    std::string text;
    for (const auto& [kind, count] : counts)
        text += (text.empty() ? "" : ", ") + std::to_string(count) + " " + nameOf(kind);
    return text.empty() ? text : "groups of other kinds: " + text;
}

/// Empty after an error message, with the exit code in `exitCode`.
std::optional<Plan> planOfGroups(const BatchCommand& command, const std::vector<fs::path>& given, int& exitCode)
{
    jobs::GroupsJobResult result;
    {
        JobWatch watch(command.run.quiet ? Talk::Silent : Talk::BarOnly);
        result = jobs::groupsJob(given, watch.callbacks());
    }
    if (!result.done() && result.unreadable.empty()) {
        exitCode = reportOutcome(result, command.name.c_str());
        return std::nullopt;
    }
    Plan plan;
    plan.notes = jobs::leftOutNotes(result.leftOut);
    if (const std::string others = otherGroups(result.groups, command.kinds); !others.empty())
        plan.notes.push_back(others);
    for (const auto& file : result.unreadable)
        plan.failures.push_back(file.reason);
    for (const PictureGroup& group : result.groups)
        if (std::find(command.kinds.begin(), command.kinds.end(), group.kind) != command.kinds.end())
            plan.jobs.push_back({group.paths, group.kind == PictureGroupKind::BracketPanorama ? group.bracketSize : 0});
    return plan;
}

std::optional<Plan> planOf(const BatchCommand& command, int& exitCode)
{
    const auto list = listOf(command.options);
    if (list && !command.files.empty()) {
        exitCode = wrongUsage(command.name,
                              pathText(*list) + ": this is a list, which holds all files, but other files were given");
        return std::nullopt;
    }
    if (list)
        return planOfList(command, *list);
    std::vector<fs::path> given(command.files.begin(), command.files.end());
    if (!command.options.value.empty())
        given.insert(given.begin(), command.options.value);
    if (given.empty()) {
        exitCode = wrongUsage(command.name, "--batch needs a list, files or folders");
        return std::nullopt;
    }
    return command.kinds.empty() ? planOfPictures(given) : planOfGroups(command, given, exitCode);
}

fs::path outputOf(const BatchCommand& command, const BatchFiles& job)
{
    const fs::path beside = jobs::defaultOutput(job.files.front(), command.done);
    return command.output.file.empty() ? beside : fs::path(command.output.file) / beside.filename();
}

const char* nameOf(jobs::BatchState state)
{
    switch (state) {
    case jobs::BatchState::NotStarted:
        return "not-started";
    case jobs::BatchState::Skipped:
        return "skipped";
    case jobs::BatchState::Done:
        return "done";
    case jobs::BatchState::Failed:
        return "failed";
    case jobs::BatchState::Cancelled:
        return "cancelled";
    }
    return "";
}

nlohmann::ordered_json itemAsJson(const jobs::BatchItem& item)
{
    nlohmann::ordered_json json = {{"state", nameOf(item.state)}, {"output", pathText(item.output)}};
    if (item.state == jobs::BatchState::Done)
        json.update(writtenAsJson(item.result));
    json["files"] = nlohmann::ordered_json::array();
    for (const fs::path& input : item.inputs)
        json["files"].push_back({{"path", pathText(input)}});
    if (!item.result.message.empty())
        json["message"] = item.result.message;
    json["warnings"] = item.result.warnings;
    return json;
}

std::string asJson(const jobs::BatchResult& result, const Plan& plan)
{
    nlohmann::ordered_json json;
    json["jobs"] = nlohmann::ordered_json::array();
    for (const jobs::BatchItem& item : result.items)
        json["jobs"].push_back(itemAsJson(item));
    for (const jobs::BatchState state : {jobs::BatchState::Done, jobs::BatchState::Skipped, jobs::BatchState::Failed,
                                         jobs::BatchState::Cancelled, jobs::BatchState::NotStarted})
        json[nameOf(state)] = result.count(state);
    json["unreadable"] = plan.failures;
    json["notes"] = plan.notes;
    json["most_at_once"] = result.mostAtOnce;
    json["milliseconds"] = result.milliseconds;
    json["peak_memory_bytes"] = {{"process", result.peak.process}};
    return jsonText(json);
}

std::string itemAsText(const jobs::BatchItem& item)
{
    std::string text = nameOf(item.state);
    constexpr std::size_t kStateColumn = 13;
    text.resize(kStateColumn, ' ');
    switch (item.state) {
    case jobs::BatchState::Done:
        return text + writtenAsText(item.result) + " from " + counted(item.inputs.size(), "picture") + "\n";
    case jobs::BatchState::Skipped:
        return text + printable(pathText(item.output)) + ": exists, and no input is newer\n";
    case jobs::BatchState::Failed:
    case jobs::BatchState::Cancelled:
    case jobs::BatchState::NotStarted:
        break;
    }
    const std::string inputs =
        pathText(item.inputs.front()) +
        (item.inputs.size() > 1 ? " and " + std::to_string(item.inputs.size() - 1) + " more" : "");
    return text + printable(pathText(item.output)) + " from " + printable(inputs) +
           (item.state == jobs::BatchState::Failed ? ": " + printable(item.result.message) : "") + "\n";
}

std::string asText(const jobs::BatchResult& result)
{
    std::string text;
    for (const jobs::BatchItem& item : result.items)
        text += itemAsText(item);
    text += std::to_string(result.count(jobs::BatchState::Done)) + " done, " +
            std::to_string(result.count(jobs::BatchState::Skipped)) + " skipped, " +
            std::to_string(result.count(jobs::BatchState::Failed)) + " failed";
    const std::size_t open = result.count(jobs::BatchState::Cancelled) + result.count(jobs::BatchState::NotStarted);
    if (open > 0)
        text += ", " + std::to_string(open) + " not made";
    char time[32];
    constexpr double kMillisecondsPerSecond = 1000.0;
    std::snprintf(time, sizeof time, " in %.1f s\n", result.milliseconds / kMillisecondsPerSecond);
    return text + time;
}

void sayNotes(const jobs::BatchResult& result)
{
    for (const jobs::BatchItem& item : result.items)
        for (const std::string& warning : item.result.warnings)
            complain("note: " + warning);
}

std::vector<fs::path> allInputs(const std::vector<jobs::BatchTask>& tasks)
{
    std::vector<fs::path> inputs;
    for (const jobs::BatchTask& task : tasks)
        inputs.insert(inputs.end(), task.inputs.begin(), task.inputs.end());
    return inputs;
}

int run(const BatchCommand& command, const Plan& plan)
{
    std::vector<jobs::BatchTask> tasks;
    std::vector<fs::path> outputs;
    for (const BatchFiles& job : plan.jobs) {
        outputs.push_back(outputOf(command, job));
        tasks.push_back(command.task(job, outputs.back()));
    }
    if (!openLog(command.name, command.run, allInputs(tasks), outputs))
        return kWrongUsage;
    if (!command.run.quiet)
        for (const std::string& note : plan.notes)
            complain("note: " + note);
    jobs::BatchResult result;
    {
        JobWatch watch(command.run.quiet ? Talk::Silent : command.run.json ? Talk::BarOnly : Talk::Full);
        result = jobs::batchJob(tasks,
                                {.memoryBytes = bytesOf(command.options.memory).value_or(0),
                                 .threads = command.threads,
                                 .jobsAtOnce = command.jobsAtOnce,
                                 .force = command.output.force},
                                watch.callbacks());
    }
    if (!command.run.quiet)
        sayNotes(result);
    if (command.run.json)
        say(asJson(result, plan));
    else if (!command.run.quiet)
        say(asText(result));
    for (const std::string& failure : plan.failures)
        complain(failure);
    for (const jobs::BatchItem& item : result.items)
        if (item.state == jobs::BatchState::Failed)
            complain(item.result.message);
    const int exitCode = reportOutcome(result, command.name.c_str());
    return exitCode == kDone && !plan.failures.empty() ? kFailed : exitCode;
}

CLI::Option* bindMemory(Options& app, BatchOptions& options, const std::string& about)
{
    return app.add_option("--memory", options.memory, about)->type_name("SIZE")->check(memoryText());
}

/// The folder of the results exists.
bool checkFolder(const BatchCommand& command)
{
    std::error_code error;
    if (command.output.file.empty() || fs::is_directory(command.output.file, error))
        return true;
    complain(command.output.file + ": there is no such folder; the output of several jobs is a folder");
    return false;
}

} // namespace

void bindBatch(Options& app, BatchOptions& options, const std::string& what)
{
    options.option = app.add_option("--batch", options.value,
                                    "make a result for each " + what +
                                        " among FILES,\n"
                                        "or for each line of the text file LIST; -o is then\n"
                                        "an existing folder, and --force redoes up-to-date results")
                         ->type_name("[LIST]")
                         ->expected(0, 1);
    bindMemory(app, options,
               "with --batch: memory limit of all jobs together, such as 8G\n"
               "(default: half of the machine's memory)")
        ->needs(app.get_option("--batch"));
}

void bindEachPicture(Options& app, BatchOptions& options)
{
    options.option = app.add_option("--batch", options.value,
                                    "make a result for each of FILES, or for each picture in the\n"
                                    "text file LIST; implied by several FILES or a folder;\n"
                                    "-o is then an existing folder, and --force replaces results")
                         ->type_name("[LIST]")
                         ->expected(0, 1);
    bindMemory(app, options, "memory limit of a batch, such as 8G\n(default: half of the machine's memory)");
}

bool isEachPicture(const std::vector<std::string>& files, const BatchOptions& options)
{
    std::error_code error; // of a missing file, which the job reports
    return options.isGiven() || files.size() > 1 || (files.size() == 1 && fs::is_directory(files.front(), error));
}

std::optional<std::string> onlyFile(const std::string& command, const std::vector<std::string>& files,
                                    const BatchOptions& options)
{
    if (!files.empty() && options.memory.empty())
        return files.front();
    (void)wrongUsage(command, files.empty() ? kNoFiles : "--memory is for several pictures, but one was given");
    return std::nullopt;
}

int runBatchCommand(const BatchCommand& command)
{
    if (!checkFolder(command))
        return kFailed;
    try {
        int exitCode = kFailed;
        const auto plan = planOf(command, exitCode);
        return plan ? run(command, *plan) : exitCode;
    } catch (const FailureError& error) {
        complain(error.what());
        return kFailed;
    }
}

} // namespace orvo::cli
